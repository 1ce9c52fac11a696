// The hub's own debug dump, put together from its fragments.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "chre/hub_message.h"

namespace android::hardware::bluetooth::hci::hub {

// Begin and Collect belong to who asked for the dump, one at a time; Add to the thread that reads from the hub.
class HubDump {
 public:
  using Events = std::map<uint32_t, std::vector<uint8_t>>;

  // False while another dump is being collected.
  bool Begin();
  // What has come once all of it has, or `patience` has passed; by number, whatever order it came in. In `complete`
  // whether nothing is missing.
  Events Collect(std::chrono::milliseconds patience, bool* complete);
  // False when nobody collects.
  bool Add(const DumpFragment& fragment);

 private:
  static constexpr size_t kMostFragments = 4096;

  bool CompleteLocked() const { return last_ && events_.size() == size_t{*last_} + 1; }

  std::mutex mutex_;  // a leaf
  std::condition_variable changed_;
  bool collecting_ = false;
  Events events_;
  std::optional<uint32_t> last_;
};

}  // namespace android::hardware::bluetooth::hci::hub
