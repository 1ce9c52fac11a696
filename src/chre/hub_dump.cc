#include "chre/hub_dump.h"

#include <utility>

namespace android::hardware::bluetooth::hci::hub {

bool HubDump::Begin() {
  const std::lock_guard lock(mutex_);
  if (collecting_) return false;
  collecting_ = true;
  events_.clear();
  last_.reset();
  return true;
}

HubDump::Events HubDump::Collect(std::chrono::milliseconds patience, bool* complete) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [this] { return CompleteLocked(); });
  *complete = CompleteLocked();
  collecting_ = false;
  return std::exchange(events_, {});
}

bool HubDump::Add(const DumpFragment& fragment) {
  const std::lock_guard lock(mutex_);
  if (!collecting_ || fragment.number >= kMostFragments) return false;
  events_[fragment.number].assign(fragment.event.begin(), fragment.event.end());
  if (fragment.last) last_ = fragment.number;
  changed_.notify_all();
  return true;
}

}  // namespace android::hardware::bluetooth::hci::hub
