// What the hub has been asked and has not answered yet.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "debug_central/debug_central.h"

namespace android::hardware::bluetooth::hci::hub {

// A request that has failed.
struct Refusal {
  const char* request;  // a literal
  BqrErrorCode kind;
};

// All methods may be called from any thread. Replies come on one that never waits here.
class HubRequests {
 public:
  using Clock = std::chrono::steady_clock;

  // Notes a request that is about to be sent, `request` being a literal; returns its id, never 0. One that is waited
  // for is ended by Await or Forget, any other by its reply, by Overdue or by FailAll.
  uint32_t Add(const char* request, std::chrono::milliseconds patience, bool waited);
  // Waits for the reply; nothing when the hub has done what it was asked.
  std::optional<Refusal> Await(uint32_t id);
  void Forget(uint32_t id);

  // The refusal of a request that nobody waits for. A reply to what is not outstanding is counted.
  std::optional<Refusal> OnReply(uint32_t id, uint8_t status);
  // A request that nobody waits for and whose time is up, once.
  std::optional<Refusal> Overdue();
  bool HasUnawaited() const;

  // While the connection is lost, time does not count.
  void Suspend();
  void Resume();
  // All that is outstanding fails with this kind; what nobody waits for is forgotten.
  void FailAll(BqrErrorCode kind);

  // Replies that came twice, too late or unasked.
  uint64_t StrayReplies() const;

 private:
  struct Request {
    const char* name;
    std::chrono::milliseconds patience;
    bool waited;
    Clock::time_point deadline;
    bool ended = false;
    std::optional<BqrErrorCode> failure;
  };

  mutable std::mutex mutex_;  // a leaf
  std::condition_variable changed_;
  std::map<uint32_t, Request> requests_;
  uint32_t last_id_ = 0;
  bool suspended_ = false;
  uint64_t stray_replies_ = 0;
};

}  // namespace android::hardware::bluetooth::hci::hub
