#include "bthal/bridge/outbox.h"

#include <utility>

#include "bthal/hci/codes.h"

namespace bthal::tool {
namespace {

// What the air is full of.
bool IsReport(uint8_t kind, std::span<const uint8_t> packet) {
  if (kind != kEvent || packet.empty()) return false;
  switch (packet[0]) {
    case events::kInquiryResult:
    case events::kInquiryResultWithRssi:
    case events::kExtendedInquiryResult:
      return true;
    case events::kLeMeta:
      break;
    default:
      return false;
  }
  const uint8_t subevent = packet.size() > 2 ? packet[2] : 0;
  return subevent == events::kLeAdvertisingReport || subevent == events::kLeDirectedAdvertisingReport ||
         subevent == events::kLeExtendedAdvertisingReport || subevent == events::kLePeriodicAdvertisingReport;
}

}  // namespace

void Outbox::Open() {
  const std::lock_guard lock(mutex_);
  packets_.clear();
  bytes_ = 0;
  dropped_reports_ = 0;
  full_ = false;
  open_ = true;
}

void Outbox::Close() {
  const std::lock_guard lock(mutex_);
  open_ = false;
  packets_.clear();
  bytes_ = 0;
  changed_.notify_all();
}

bool Outbox::Put(uint8_t kind, std::span<const uint8_t> packet) {
  Packet whole;
  whole.reserve(packet.size() + 1);
  whole.push_back(kind);
  whole.insert(whole.end(), packet.begin(), packet.end());
  const std::lock_guard lock(mutex_);
  if (!open_ || full_) return false;
  if (bytes_ > kCrowded && IsReport(kind, packet)) {
    ++dropped_reports_;
    return true;
  }
  full_ = bytes_ > kFull;
  bytes_ += whole.size();
  packets_.push_back(std::move(whole));
  changed_.notify_all();
  return true;
}

bool Outbox::Take(std::deque<Packet>* packets) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !open_ || !packets_.empty(); });
  if (!open_ || full_) return false;
  *packets = std::exchange(packets_, {});
  bytes_ = 0;
  return true;
}

uint64_t Outbox::dropped_reports() const {
  const std::lock_guard lock(mutex_);
  return dropped_reports_;
}

bool Outbox::full() const {
  const std::lock_guard lock(mutex_);
  return full_;
}

}  // namespace bthal::tool
