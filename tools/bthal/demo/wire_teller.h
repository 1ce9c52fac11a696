// Tells what the board saw on a thread of its own: a terminal that stands still must not hold up the board's thread,
// which is the controller.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "sim/base/event.h"

namespace bthal::tool {

class WireTeller {
 public:
  using Tell = std::function<void(const sim::JournalEntry&)>;

  // `tell` may block; it is called for one entry after another, in their order.
  explicit WireTeller(Tell tell);
  WireTeller(const WireTeller&) = delete;
  WireTeller& operator=(const WireTeller&) = delete;
  ~WireTeller();  // tells the rest

  // Any thread; never waits for a `tell`.
  void Put(const sim::JournalEntry& entry);
  // All that has been put is told by then, and nothing else as long as the lock is held.
  std::unique_lock<std::mutex> Hold();

 private:
  void Run();
  void TellAll();  // with telling_ held

  const Tell tell_;
  std::mutex telling_;
  std::mutex mutex_;  // of what follows; the inner one
  std::condition_variable changed_;
  std::deque<sim::JournalEntry> entries_;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace bthal::tool
