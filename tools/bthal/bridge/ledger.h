// What went wrong between a host stack and the controller, for a person to read: what the controller refused, what it
// never answered, and what has no name.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <utility>

namespace bthal::tool {

// Any thread.
class Ledger {
 public:
  using Clock = std::chrono::steady_clock;

  void Sent(uint8_t kind, std::span<const uint8_t> packet);
  // False for the answer to a command of a host that has gone: it is not for its successor.
  bool Received(uint8_t kind, std::span<const uint8_t> packet, Clock::time_point now = Clock::now());
  // What the controller sent while nobody was there to take it, and what a peer had no time for.
  void NobodyThere();
  void DroppedReports(uint64_t count);
  // A new controller, or a new session with it, owes no answers.
  void NewSession();
  void HostGone(Clock::time_point now = Clock::now());
  // What the controller still owes, it owes to the host before. Commands are answered in their order, so that of two
  // answers to the same command the first is the predecessor's; one that does not come within a while after that one
  // has gone never will.
  void NewHost(Clock::time_point now = Clock::now());

  // Several lines, each with its end.
  std::string Report() const;

 private:
  bool IsForPredecessor(uint16_t opcode, Clock::time_point now);

  mutable std::mutex mutex_;
  uint64_t commands_ = 0, data_down_ = 0, events_ = 0, data_up_ = 0;
  uint64_t nobody_there_ = 0, dropped_reports_ = 0;
  std::map<std::pair<uint16_t, uint8_t>, uint64_t> refused_;  // by opcode and status
  std::map<uint16_t, uint64_t> unanswered_;
  std::map<uint16_t, uint64_t> owed_to_predecessors_;
  Clock::time_point owed_until_;
  std::map<uint16_t, uint64_t> unknown_commands_;
  std::map<uint16_t, uint64_t> unknown_events_;  // code, and the sub-event's code above it
};

}  // namespace bthal::tool
