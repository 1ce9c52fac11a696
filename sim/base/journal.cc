#include "sim/base/journal.h"

#include <algorithm>
#include <optional>
#include <thread>

namespace bthal::sim {
namespace {

constexpr uint8_t kCommandPacket = 0x01;
constexpr uint8_t kEventPacket = 0x04;

// How long a waiter rests between two looks at the journal: each look may walk all of it while the board's thread
// waits.
constexpr auto kBetweenLooks = std::chrono::milliseconds(2);

size_t DataBytes(const JournalEntry& entry) {
  return entry.packet_type == kCommandPacket || entry.packet_type == kEventPacket ? 0 : entry.bytes.size();
}

}  // namespace

void EventJournal::Record(WireEvent event, uint64_t value, std::string text) {
  JournalEntry entry;
  entry.event = event;
  entry.value = value;
  entry.text = std::move(text);
  Record(std::move(entry));
}

void EventJournal::RecordPacket(WireEvent event, uint8_t type, std::vector<uint8_t> bytes) {
  JournalEntry entry;
  entry.event = event;
  entry.packet_type = type;
  entry.value = bytes.size();
  entry.bytes = std::move(bytes);
  Record(std::move(entry));
}

void EventJournal::Record(JournalEntry entry) {
  entry.time = std::chrono::steady_clock::now();
  std::shared_ptr<const Observer> observer;
  std::optional<JournalEntry> observed;
  {
    std::lock_guard lock(mutex_);
    observer = observer_;
    if (observer) observed = entry;
    data_bytes_ += DataBytes(entry);
    entries_.push_back(std::move(entry));
    Shorten();
  }
  changed_.notify_all();
  // Without the lock, so that the observer may ask the board whatever it likes.
  if (observed) (*observer)(*observed);
}

void EventJournal::Shorten() {
  while (data_bytes_ > max_bytes_ && next_faded_ < entries_.size()) {
    JournalEntry& entry = entries_[next_faded_++];
    const size_t bytes = DataBytes(entry);
    if (bytes == 0) continue;
    data_bytes_ -= bytes;
    std::vector<uint8_t>().swap(entry.bytes);
  }
  if (entries_.size() <= kMaxEntries) return;
  const size_t half = entries_.size() / 2;
  for (size_t i = 0; i < half; ++i) data_bytes_ -= DataBytes(entries_[i]);
  entries_.erase(entries_.begin(), entries_.begin() + static_cast<ptrdiff_t>(half));
  dropped_ += half;
  next_faded_ -= std::min(next_faded_, half);
}

std::vector<JournalEntry> EventJournal::From(size_t from) const {
  std::lock_guard lock(mutex_);
  const size_t first = from > dropped_ ? from - dropped_ : 0;
  if (first >= entries_.size()) return {};
  return {entries_.begin() + static_cast<ptrdiff_t>(first), entries_.end()};
}

std::vector<std::vector<uint8_t>> EventJournal::Commands() const {
  std::lock_guard lock(mutex_);
  std::vector<std::vector<uint8_t>> commands;
  for (const JournalEntry& entry : entries_) {
    if (entry.event == WireEvent::kReceived && entry.packet_type == kCommandPacket) commands.push_back(entry.bytes);
  }
  return commands;
}

bool EventJournal::WaitFor(const std::function<bool(const std::vector<JournalEntry>&)>& done,
                           std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::unique_lock lock(mutex_);
  for (;;) {
    const size_t seen = dropped_ + entries_.size();
    if (done(entries_)) return true;
    if (!changed_.wait_until(lock, deadline, [&] { return dropped_ + entries_.size() != seen; })) return done(entries_);
    lock.unlock();
    std::this_thread::sleep_for(kBetweenLooks);
    lock.lock();
  }
}

void EventJournal::SetObserver(std::function<void(const JournalEntry&)> observer) {
  auto shared = observer ? std::make_shared<const Observer>(std::move(observer)) : nullptr;
  std::lock_guard lock(mutex_);
  observer_ = std::move(shared);
}

}  // namespace bthal::sim
