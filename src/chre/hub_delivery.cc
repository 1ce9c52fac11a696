#define LOG_TAG "bthal.usf"

#include "chre/hub_delivery.h"

#include <sched.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <utility>
#include <vector>

#include <android-base/logging.h>

#include "os/error_text.h"
#include "os/thread.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

constexpr int kRealTimePriority = 1;

// As on the direct path: what has been received is drained before the normal threads get the processor.
void RaisePriority() {
  const sched_param parameters{.sched_priority = kRealTimePriority};
  if (sched_setscheduler(gettid(), SCHED_FIFO, &parameters) == 0) return;
  LOG(ERROR) << "unable to set SCHED_FIFO for what the sensor hub sends: " << os::ErrorText();
}

struct Kept {
  uint8_t type;
  std::vector<uint8_t> bytes;
};

// In memory, with what keeping it takes.
size_t Cost(size_t packet_size) { return sizeof(Kept) + packet_size + 2 * sizeof(size_t); }

void Call(const Consumers& consumers, Kept& packet) {
  const auto consumer = [&]() -> const HciPacketCallback& {
    switch (static_cast<HciPacketType>(packet.type)) {
      case HciPacketType::kAclData:
        return consumers.acl_cb;
      case HciPacketType::kScoData:
        return consumers.sco_cb;
      case HciPacketType::kIsoData:
        return consumers.iso_cb;
      case HciPacketType::kThreadData:
        return consumers.thread_cb;
      default:
        return consumers.event_cb;
    }
  }();
  if (!consumer) return;
  HciPacket lent;
  lent.setToExternal(packet.bytes.data(), packet.bytes.size());
  consumer(lent);
}

}  // namespace

// One life of the consumers. Its thread keeps it alive.
struct HubDelivery::Run {
  explicit Run(const Consumers& who) : consumers(who) {}

  void Deliver() {
    RaisePriority();
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return ended || !kept.empty(); });
      if (ended) break;
      Kept packet = std::move(kept.front());
      kept.pop_front();
      kept_bytes -= Cost(packet.bytes.size());
      calling = true;
      changed.notify_all();
      lock.unlock();
      if (const std::shared_ptr<const void> keep = receiver.lock()) Call(consumers, packet);
      lock.lock();
      calling = false;
      changed.notify_all();
    }
  }

  const Consumers consumers;
  std::weak_ptr<const void> receiver;  // set before the thread is started
  std::mutex mutex;                    // guards what follows, but for the thread
  std::condition_variable changed;
  std::deque<Kept> kept;
  size_t kept_bytes = 0;
  bool calling = false;
  bool ended = false;
  os::Thread thread;  // of those who attach and take away
};

std::shared_ptr<HubDelivery::Run> HubDelivery::Current() const {
  const std::lock_guard lock(mutex_);
  return run_;
}

void HubDelivery::Attach(const Consumers& consumers) {
  TakeAway(std::chrono::milliseconds(0));
  const std::lock_guard lock(mutex_);
  run_ = std::make_shared<Run>(consumers);
}

bool HubDelivery::Start(const std::weak_ptr<const void>& receiver) {
  const std::shared_ptr<Run> run = Current();
  if (run == nullptr || run->thread.joinable()) return run != nullptr;
  run->receiver = receiver;
  run->thread = os::Thread::Start("bt_rx", [run] { run->Deliver(); });
  if (run->thread.joinable()) return true;
  LOG(ERROR) << "no thread for what the sensor hub receives: " << os::ErrorText();
  return false;
}

void HubDelivery::TakeAway(std::chrono::milliseconds patience) {
  std::shared_ptr<Run> run;
  {
    const std::lock_guard lock(mutex_);
    run.swap(run_);
  }
  if (run == nullptr) return;
  std::unique_lock lock(run->mutex);
  run->ended = true;
  const size_t dropped = run->kept.size();
  run->kept.clear();
  run->changed.notify_all();
  const bool own = run->thread.IsCurrent();
  const bool left = own || run->changed.wait_for(lock, patience, [&] { return !run->calling; });
  lock.unlock();
  if (run->thread.joinable()) {
    if (own || !left) {
      run->thread.detach();
    } else {
      run->thread.join();
    }
  }
  if (!left) LOG(WARNING) << __func__ << ": a received packet is still being delivered, going on without its thread";
  const std::lock_guard counting(mutex_);
  dropped_ += dropped;
}

void HubDelivery::Add(uint8_t type, std::span<const uint8_t> packet) {
  if (const std::shared_ptr<Run> run = Current()) {
    std::unique_lock lock(run->mutex);
    run->changed.wait(lock, [&] { return run->ended || run->kept_bytes < kMaxKept; });
    if (!run->ended) {
      run->kept.push_back({type, {packet.begin(), packet.end()}});
      run->kept_bytes += Cost(packet.size());
      run->changed.notify_all();
      return;
    }
  }
  const std::lock_guard lock(mutex_);
  ++dropped_;
}

bool HubDelivery::IsFull() const {
  const std::shared_ptr<Run> run = Current();
  if (run == nullptr) return false;
  const std::lock_guard lock(run->mutex);
  return !run->ended && run->kept_bytes >= kMaxKept;
}

uint64_t HubDelivery::Dropped() const {
  const std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace android::hardware::bluetooth::hci::hub
