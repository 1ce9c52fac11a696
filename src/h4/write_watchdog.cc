#define LOG_TAG "bthal.hci_h4"

#include "h4/write_watchdog.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <utility>

#include "hci/hci_packet.h"
#include "os/error_text.h"
#include "os/interrupt.h"
#include "os/thread_timer.h"

namespace android::hardware::bluetooth::hci {
namespace {

using ::android::base::StringPrintf;
using Clock = std::chrono::steady_clock;

// How often a write in progress is looked at, as part of the limit.
constexpr int kLooksPerLimit = 10;

// "command 0x0C03", "ACL packet with handle 0x0040": the type, and what the first two bytes say.
std::string Describe(uint8_t type, uint16_t first_bytes) {
  switch (static_cast<HciPacketType>(type)) {
    case HciPacketType::kCommand:
      return StringPrintf("command 0x%04X", first_bytes);
    case HciPacketType::kAclData:
      return StringPrintf("ACL packet of handle 0x%03X", first_bytes & 0xFFF);
    case HciPacketType::kScoData:
      return StringPrintf("SCO packet of handle 0x%03X", first_bytes & 0xFFF);
    case HciPacketType::kIsoData:
      return StringPrintf("ISO packet of handle 0x%03X", first_bytes & 0xFFF);
    case HciPacketType::kThreadData:
      return "Thread frame";
    default:
      return StringPrintf("packet of type %d", type);
  }
}

}  // namespace

struct WriteWatchdog::State {
  State(std::function<void(const std::string&)> stall, std::chrono::milliseconds most)
      : limit(most), on_stall(std::move(stall)) {}

  void Arm(const std::shared_ptr<State>& self);
  void Look();
  void InterruptWriter();
  bool Moved();
  void ReportStall();

  const std::chrono::milliseconds limit;

  // The packet being written. Plain values of its beginning: the packet itself may be gone when they are looked at.
  std::atomic<bool> writing{false};
  std::atomic<uint64_t> steps{0};  // grows with everything that happens
  std::atomic<uint8_t> type{0};
  std::atomic<uint16_t> first_bytes{0};
  std::atomic<size_t> total{0};
  std::atomic<size_t> written{0};

  std::atomic<pthread_t> writer{};
  std::mutex interrupt_mutex;  // held while the writer is interrupted
  std::atomic<int> interrupting{0};

  std::atomic<bool> armed{false};
  std::mutex mutex;  // guards what follows
  std::unique_ptr<os::ThreadTimer> timer;
  std::function<void(const std::string&)> on_stall;

  // The timer's thread only.
  uint64_t seen_steps = 0;
  Clock::time_point seen_at;
};

WriteWatchdog::WriteWatchdog(std::function<void(const std::string& what)> on_stall, std::chrono::milliseconds limit)
    : state_(std::make_shared<State>(std::move(on_stall), limit)) {}

WriteWatchdog::~WriteWatchdog() {
  std::function<void(const std::string&)> last;
  const std::lock_guard lock(state_->mutex);
  state_->timer.reset();
  last.swap(state_->on_stall);
}

WriteWatchdog::Write::Write(WriteWatchdog& watchdog, uint8_t type, const uint8_t* data, size_t length)
    : watchdog_(watchdog) {
  State& state = *watchdog.state_;
  std::array<uint8_t, 2> first{};
  std::copy_n(data, std::min(length, first.size()), first.begin());
  state.type.store(type, std::memory_order_relaxed);
  state.first_bytes.store(static_cast<uint16_t>(first[0] | first[1] << 8), std::memory_order_relaxed);
  state.total.store(length + 1, std::memory_order_relaxed);
  state.written.store(0, std::memory_order_relaxed);
  state.writer.store(pthread_self(), std::memory_order_relaxed);
  state.writing.store(true, std::memory_order_release);
  ++state.steps;
  if (!state.armed) state.Arm(watchdog.state_);
}

// Does not return to where the thread might end, or block in something else, while it is being interrupted.
WriteWatchdog::Write::~Write() {
  State& state = *watchdog_.state_;
  state.writing = false;
  if (state.interrupting != 0) const std::lock_guard until_done(state.interrupt_mutex);
}

void WriteWatchdog::Write::Progress(size_t written) {
  State& state = *watchdog_.state_;
  state.written.store(written, std::memory_order_relaxed);
  ++state.steps;
}

void WriteWatchdog::InterruptWrite() { state_->InterruptWriter(); }

void WriteWatchdog::State::InterruptWriter() {
  const std::lock_guard lock(interrupt_mutex);
  ++interrupting;
  if (writing) os::InterruptThread(writer);
  --interrupting;
}

void WriteWatchdog::State::Arm(const std::shared_ptr<State>& self) {
  const std::lock_guard lock(mutex);
  if (armed.exchange(true)) return;
  if (timer == nullptr) {
    timer = os::ThreadTimer::Create("bt_tx_watch", [weak = std::weak_ptr<State>(self)] {
      if (const auto state = weak.lock()) state->Look();
    });
  }
  const std::chrono::milliseconds interval = limit / kLooksPerLimit;
  if (timer == nullptr || !timer->Arm(interval, interval)) {
    LOG(ERROR) << "WriteWatchdog: nothing watches the writes: " << os::ErrorText();
  }
}

void WriteWatchdog::State::Look() {
  if (Moved()) return;
  if (writing) {
    if (Clock::now() - seen_at >= limit) {
      ReportStall();
    } else {
      InterruptWriter();
    }
    return;
  }
  // Nothing was written since the last look: sleep until the next packet, which arms the timer if it comes from now on,
  // and has been seen here if it came before.
  const std::lock_guard lock(mutex);
  if (timer == nullptr) return;
  armed = false;
  if (writing || steps != seen_steps) {
    armed = true;
  } else {
    timer->Disarm();
  }
}

bool WriteWatchdog::State::Moved() {
  const uint64_t now = steps;
  if (now == seen_steps) return false;
  seen_steps = now;
  seen_at = Clock::now();
  return true;
}

void WriteWatchdog::State::ReportStall() {
  std::function<void(const std::string&)> report;
  {
    const std::lock_guard lock(mutex);
    report.swap(on_stall);
    if (timer != nullptr) timer->Disarm();
  }
  if (!report) return;
  report(StringPrintf("%s: %zu/%zu bytes written, no progress for %lld ms", Describe(type, first_bytes).c_str(),
                      written.load(), total.load(), static_cast<long long>(limit.count())));
}

}  // namespace android::hardware::bluetooth::hci
