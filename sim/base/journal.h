// What happened at the board, kept for whoever asks.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "sim/base/event.h"

namespace bthal::sim {

// Written by the board's thread, read by any.
class EventJournal {
 public:
  // Keeps at most kMaxEntries entries and about `max_bytes` of data packets: beyond the one the oldest half of the
  // entries goes, beyond the other the oldest data packets lose their bytes (their `value` still tells their length).
  explicit EventJournal(size_t max_bytes) : max_bytes_(max_bytes) {}

  void Record(JournalEntry entry);
  void Record(WireEvent event, uint64_t value = 0, std::string text = {});
  // With its length as the value.
  void RecordPacket(WireEvent event, uint8_t type, std::vector<uint8_t> bytes);

  std::vector<JournalEntry> From(size_t from) const;
  std::vector<std::vector<uint8_t>> Commands() const;
  bool WaitFor(const std::function<bool(const std::vector<JournalEntry>&)>& done,
               std::chrono::milliseconds timeout) const;
  void SetObserver(std::function<void(const JournalEntry&)> observer);

 private:
  using Observer = std::function<void(const JournalEntry&)>;

  void Shorten();

  static constexpr size_t kMaxEntries = 2'000'000;

  const size_t max_bytes_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<JournalEntry> entries_;
  size_t dropped_ = 0;     // entries that are no longer there
  size_t data_bytes_ = 0;  // kept bytes of data packets
  size_t next_faded_ = 0;  // the first entry that may still have its bytes
  std::shared_ptr<const Observer> observer_;
};

}  // namespace bthal::sim
