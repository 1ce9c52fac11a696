#include "debug_central/record_table.h"

#include <time.h>

#include <algorithm>

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

void RecordTable::Record::Assign(Time when, std::string_view first, std::string_view second) {
  time = when;
  const size_t length = first.size() + second.size();
  if (text.capacity() > kKeptCapacity && length <= kKeptCapacity) std::string().swap(text);
  text.reserve(std::max(length, kUsualCapacity));
  text.assign(first).append(second);
}

void RecordTable::Append(AnchorType type, Time time, std::string_view text, std::string_view suffix) {
  const size_t slot = (oldest_ + count_) % kMaxHistory;
  if (count_ == kMaxHistory) {
    oldest_ = (oldest_ + 1) % kMaxHistory;
  } else {
    ++count_;
  }
  history_[slot].Assign(time, text, suffix);
  const auto number = static_cast<size_t>(type);
  last_appearance_[number].Assign(time, text, suffix);
  seen_.set(number);
}

void RecordTable::PrintLastAppearances(std::string& out) const {
  for (size_t number = 0; number < kTypes; ++number) {
    if (!seen_[number]) continue;
    const Record& record = last_appearance_[number];
    out.append("Timestamp of ").append(record.text).append(": ").append(ToRecordTime(record.time)) += '\n';
  }
}

void RecordTable::PrintHistory(std::string& out) const {
  for (size_t i = 0; i < count_; ++i) {
    const Record& record = history_[(oldest_ + i) % kMaxHistory];
    out.append(ToRecordTime(record.time)).append(": ").append(record.text) += '\n';
  }
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
