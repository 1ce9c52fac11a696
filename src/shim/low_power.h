// The link's low-power mode as the host keeps it: the wake line, its timer and the wake lock.
#pragma once

#include <signal.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace android::hardware::bluetooth::hci::shim {

// The one wake lock of the service: held during bring-up, and while the link to the controller is awake.
inline constexpr char kBthalWakeLock[] = "bthal_wakelock";

// How long and how busily the link was kept awake. Zero and empty after every set-up and tear-down of low-power mode.
struct LpmStatistics {
  std::string last_wake_time;     // wall clock at the start of the last finished awake period
  int64_t last_awake_ms = 0;      // its length
  uint32_t last_wake_count = 0;   // transmissions in it
  uint64_t total_wake_count = 0;  // transmissions in all finished awake periods
};

// The wake line is asserted before a transmission and dropped at the first timer expiry that saw none since the one
// before; the wake lock is held while it is asserted. Process-wide, never destroyed. lpm_setup and lpm_teardown come
// from bring-up and teardown, LpmWakeUp from any sending thread (under the flow-control lock), LpmWakeUpTimeout on the
// timer's.
class LowPowerLink {
 public:
  static LowPowerLink& Get();

  // Keeps the link awake for the length of one transmission, however long it takes.
  class Transmission {
   public:
    Transmission() {
      ++Get().transmissions_;
      Get().LpmWakeUp();
    }
    Transmission(const Transmission&) = delete;
    Transmission& operator=(const Transmission&) = delete;
    ~Transmission() { --Get().transmissions_; }
  };

  // Opens the driver and makes the timer. False, with nothing left behind, where one of them cannot be had. The
  // controller's own sleep mode is the caller's to set.
  bool lpm_setup();
  void lpm_teardown();
  void LpmWakeUp();
  // One expiry of the wake timer. `value` carries the number of the set-up that made the timer: an expiry that comes
  // too late, after its timer has gone, does nothing.
  void LpmWakeUpTimeout(sigval value);
  LpmStatistics lpm_statistics() const;

 private:
  LowPowerLink() = default;

  std::atomic<int> transmissions_{0};
};

}  // namespace android::hardware::bluetooth::hci::shim
