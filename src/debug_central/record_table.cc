#include "debug_central/record_table.h"

#include <time.h>

#include <algorithm>
#include <utility>

#include <android-base/stringprintf.h>

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

// A slot that once held a longer text gives that memory back at its next record.
constexpr size_t kKeptCapacity = 512;
// No text of a packet is longer: from its first record on a slot takes any of them without more memory.
constexpr size_t kUsualCapacity = 96;

}  // namespace

std::string ToRecordTime(RecordTable::Time time) {
  using std::chrono::milliseconds;
  const auto since_epoch = std::chrono::floor<milliseconds>(time.time_since_epoch());
  const time_t seconds = std::chrono::floor<std::chrono::seconds>(since_epoch).count();
  tm local{};
  localtime_r(&seconds, &local);
  const auto fraction = since_epoch - std::chrono::seconds(seconds);
  return ::android::base::StringPrintf("%02d:%02d:%02d:%03d", local.tm_hour, local.tm_min, local.tm_sec,
                                       static_cast<int>(fraction.count()));
}

RecordTable::Record& RecordTable::FreeSlot() {
  if (count_ < kMaxHistory) return history_[(oldest_ + count_++) % kMaxHistory];
  Record& slot = history_[oldest_];
  oldest_ = (oldest_ + 1) % kMaxHistory;
  const auto type = static_cast<size_t>(slot.type);
  if (newest_[type] == &slot) {
    std::swap(slot, dropped_[type]);
    newest_[type] = nullptr;
  }
  return slot;
}

void RecordTable::Append(AnchorType type, Time time, std::string_view text, std::string_view suffix) {
  Record& slot = FreeSlot();
  const size_t length = text.size() + suffix.size();
  if (slot.text.capacity() > kKeptCapacity && length <= kKeptCapacity) std::string().swap(slot.text);
  slot.text.reserve(std::max(length, kUsualCapacity));
  slot.text.assign(text).append(suffix);
  slot.time = time;
  slot.type = type;
  const auto number = static_cast<size_t>(type);
  newest_[number] = &slot;
  seen_.set(number);
}

const RecordTable::Record* RecordTable::LastAppearance(size_t type) const {
  if (newest_[type] != nullptr) return newest_[type];
  return seen_[type] ? &dropped_[type] : nullptr;
}

void RecordTable::PrintLastAppearances(std::string& out) const {
  for (size_t number = 0; number < kTypes; ++number) {
    const Record* record = LastAppearance(number);
    if (record == nullptr) continue;
    out.append("Timestamp of ").append(record->text).append(": ").append(ToRecordTime(record->time)) += '\n';
  }
}

void RecordTable::PrintHistory(std::string& out) const {
  for (size_t i = 0; i < count_; ++i) {
    const Record& record = history_[(oldest_ + i) % kMaxHistory];
    out.append(ToRecordTime(record.time)).append(": ").append(record.text) += '\n';
  }
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
