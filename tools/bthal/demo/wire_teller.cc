#include "bthal/demo/wire_teller.h"

#include <utility>

namespace bthal::tool {

WireTeller::WireTeller(Tell tell) : tell_(std::move(tell)), thread_([this] { Run(); }) {}

WireTeller::~WireTeller() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void WireTeller::Put(const sim::JournalEntry& entry) {
  {
    const std::lock_guard lock(mutex_);
    entries_.push_back(entry);
  }
  changed_.notify_all();
}

std::unique_lock<std::mutex> WireTeller::Hold() {
  std::unique_lock telling(telling_);
  TellAll();
  return telling;
}

void WireTeller::Run() {
  for (bool ended = false; !ended;) {
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return !entries_.empty() || ended_; });
      ended = ended_;
    }
    const std::lock_guard telling(telling_);
    TellAll();
  }
}

void WireTeller::TellAll() {
  std::unique_lock lock(mutex_);
  for (std::deque<sim::JournalEntry> some; !entries_.empty();) {
    some.swap(entries_);
    lock.unlock();
    for (const sim::JournalEntry& entry : some) tell_(entry);
    some.clear();
    lock.lock();
  }
}

}  // namespace bthal::tool
