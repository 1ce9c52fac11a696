#define LOG_TAG "bthal.qnlproto"

#include "shim/low_power.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <hardware_legacy/power.h>
#include <time.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "bluetooth_Activity.h"
#include "debug_central/debug_central.h"
#include "os/thread_timer.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

using ::android::base::StringPrintf;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kWakeInterval(800);
// Shorter awake periods are everyday life and not worth a line in the activity statistics.
constexpr int64_t kLongAwakeMs = 3001;

// One lock for all of it. The order of locks is: flow control, this one, then debug central or the snoop logger; so
// nothing here calls flow control under it. It is recursive because the steps below call one another.
struct Lpm {
  std::recursive_mutex mutex;
  bool activity = false;  // a transmission since the last expiry
  bool awake = false;     // the wake line is asserted
  uint32_t wake_count = 0;
  Clock::time_point wake_start;
  std::string wake_time;
  std::unique_ptr<os::ThreadTimer> timer;
  int timer_generation = 0;  // counts the timers, so that a late expiry of an old one is known
  bool wake_lock_held = false;

  std::mutex statistics_mutex;  // guards what follows, also from who holds none of the rest
  LpmStatistics statistics;
};

Lpm& State() {
  static auto& state = *new Lpm;
  return state;
}

void Record(AnchorType type, const std::string& text) { DebugCentral::Get().UpdateRecord(type, text); }

// "2024-05-31 09:05:07.042", local time.
std::string WallClock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char text[32];
  strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
  return StringPrintf("%s.%03ld", text, now.tv_nsec / 1000000);
}

// Asleep, with nothing to tell. The wake lock is not the line's state and has steps of its own.
void Reset(Lpm& lpm) {
  lpm.awake = false;
  lpm.activity = false;
  lpm.wake_count = 0;
  lpm.wake_time.clear();
  const std::lock_guard lock(lpm.statistics_mutex);
  lpm.statistics = {};
}

void wakelock_acquire(Lpm& lpm) {
  const std::lock_guard lock(lpm.mutex);
  if (lpm.wake_lock_held) {
    Record(AnchorType::kWakelockSkipped, "skip duplicated wakelock_acquire");
    return;
  }
  Record(AnchorType::kWakelockAcquire, "wakelock_acquire");
  acquire_wake_lock(PARTIAL_WAKE_LOCK, kBthalWakeLock);
  lpm.wake_lock_held = true;
}

void wakelock_release(Lpm& lpm) {
  const std::lock_guard lock(lpm.mutex);
  if (!lpm.wake_lock_held) {
    Record(AnchorType::kWakelockSkipped, "skip duplicated wakelock_release");
    return;
  }
  Record(AnchorType::kWakelockRelease, "wakelock_release");
  release_wake_lock(kBthalWakeLock);
  lpm.wake_lock_held = false;
}

bool CreateWakeTimer(Lpm& lpm) {
  sigval generation{};
  generation.sival_int = ++lpm.timer_generation;
  lpm.timer =
      os::ThreadTimer::Create("bt_lpm_timer", [generation] { LowPowerLink::Get().LpmWakeUpTimeout(generation); });
  return lpm.timer != nullptr;
}

// The awake period that just ended becomes the last one.
void CloseAwakePeriod(Lpm& lpm) {
  const auto lasted = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lpm.wake_start).count();
  {
    const std::lock_guard lock(lpm.statistics_mutex);
    lpm.statistics = {.last_wake_time = lpm.wake_time,
                      .last_awake_ms = lasted,
                      .last_wake_count = lpm.wake_count,
                      .total_wake_count = lpm.statistics.total_wake_count + lpm.wake_count};
  }
  if (lasted >= kLongAwakeMs) {
    BtActivitiesLogger::Get().UpdateBthalWakelockStat(lpm.wake_time, lasted, lpm.wake_count);
  }
  lpm.wake_count = 0;
}

}  // namespace

LowPowerLink& LowPowerLink::Get() {
  static LowPowerLink link;
  return link;
}

bool LowPowerLink::lpm_setup() {
  Lpm& lpm = State();
  // From the moment the driver is open a sender may wake the link: it must find the timer that puts it to sleep again.
  const std::lock_guard lock(lpm.mutex);
  if (!LpmSetup()) return false;
  Reset(lpm);
  if (CreateWakeTimer(lpm)) return true;
  LOG(ERROR) << __func__ << ": cannot create lpm_wake_timer";
  Record(AnchorType::kLpmTimerFailed, StringPrintf("%s: cannot create lpm_wake_timer", __func__));
  lpm_teardown();
  return false;
}

void LowPowerLink::lpm_teardown() {
  Lpm& lpm = State();
  const std::lock_guard lock(lpm.mutex);
  LpmTeardown();
  lpm.timer.reset();
  Reset(lpm);
  wakelock_release(lpm);
}

void LowPowerLink::LpmWakeUp() {
  if (!IsLpmRunning()) return;
  Lpm& lpm = State();
  const std::lock_guard lock(lpm.mutex);
  if (!IsLpmRunning()) return;  // torn down while this waited: nobody would let go of the wake lock
  lpm.activity = true;
  ++lpm.wake_count;
  if (lpm.awake) return;

  Record(AnchorType::kWakeLineAssert, "LpmWakeUp");
  wakelock_acquire(lpm);
  if (!shim::LpmWakeUp()) return;
  lpm.awake = true;
  lpm.wake_time = WallClock();
  lpm.wake_start = Clock::now();
  if (lpm.timer != nullptr && !lpm.timer->Arm(kWakeInterval, kWakeInterval)) {
    LOG(ERROR) << "LpmWakeUp: cannot arm lpm_wake_timer";
    Record(AnchorType::kLpmTimerFailed, StringPrintf("%s: cannot arm lpm_wake_timer", "LpmWakeUp"));
  }
}

void LowPowerLink::LpmWakeUpTimeout(sigval value) {
  Lpm& lpm = State();
  const std::lock_guard lock(lpm.mutex);
  if (lpm.timer == nullptr || lpm.timer_generation != value.sival_int || !lpm.awake) return;
  if (transmissions_ != 0) {
    lpm.activity = true;
    return;
  }

  if (!lpm.activity) {
    Record(AnchorType::kLpmWakeTimeout, "LpmWakeUpTimeout");
    if (!LpmSuspend()) {
      lpm_teardown();
      return;
    }
    lpm.awake = false;
    CloseAwakePeriod(lpm);
    lpm.timer->Disarm();
    wakelock_release(lpm);
  }
  lpm.activity = false;
}

// Whoever wants a report of a service that stands still at its wake line does not wait for that line.
LpmStatistics LowPowerLink::lpm_statistics() const {
  Lpm& lpm = State();
  const std::lock_guard lock(lpm.statistics_mutex);
  return lpm.statistics;
}

}  // namespace android::hardware::bluetooth::hci::shim
