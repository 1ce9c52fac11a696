// What the controller has sent and the host stack has not read yet.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <vector>

namespace bthal::tool {

// Whoever puts never waits. Beyond kCrowded bytes, what says that something is in the air (advertising and inquiry
// reports) is dropped first, and counted: the next one says the same. Data and answers are never dropped; beyond
// kFull bytes the peer is one that does not read at all.
class Outbox {
 public:
  static constexpr size_t kCrowded = size_t{1} << 20;
  static constexpr size_t kFull = size_t{16} << 20;

  // A packet as it goes to the host: H4 type byte first.
  using Packet = std::vector<uint8_t>;

  // From now on packets are kept, until Close. Nothing is kept from before.
  void Open();
  // Ends Take, and forgets what is left.
  void Close();

  // Any thread. False if nobody is there to take it.
  bool Put(uint8_t kind, std::span<const uint8_t> packet);

  // Waits for packets and takes all there are. False once closed, or full.
  bool Take(std::deque<Packet>* packets);

  // Since the last Open.
  uint64_t dropped_reports() const;
  bool full() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Packet> packets_;
  size_t bytes_ = 0;
  uint64_t dropped_reports_ = 0;
  bool open_ = false;
  bool full_ = false;
};

}  // namespace bthal::tool
