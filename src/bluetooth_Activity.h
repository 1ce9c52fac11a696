// Activity statistics: what crossed the service, by kind, and how long the link was kept awake.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth {

// Process-wide, never destroyed; any thread.
class BtActivitiesLogger {
 public:
  // The kinds of LogActivities.
  enum Kind : uint8_t { kCommand = 1, kEvent = 2, kAclToController = 3, kAclFromController = 4 };

  // What the controller says of itself. Times in milliseconds, energy in the controller's unit (mA * ms * V).
  struct ControllerActivity {
    uint32_t tx_ms;
    uint32_t rx_ms;
    uint32_t idle_ms;
    uint32_t energy_used;
  };

  static BtActivitiesLogger& Get();

  // A client has the HAL, or has it no longer.
  void OnBluetoothEnabled();
  void OnBluetoothDisabled();
  // Packets are counted between the two; the counts go on from where they were.
  void StartLogging();
  void StopLogging();

  // Counts one packet; on the packet path, so it neither allocates nor locks.
  void LogActivities(Kind kind, const hci::HciPacket& packet);

  // One awake period of the low-power link that lasted 3001 ms or more.
  void UpdateBthalWakelockStat(const std::string& wall_clock, int64_t duration_ms, uint32_t wake_count);

  // One answer to the stack's question for the controller's activity.
  void UpdateControllerActivity(const ControllerActivity& activity);

  // Brings the figures up to date and returns them as lines of text.
  std::string Report();

 private:
  static constexpr size_t kKinds = 5;  // indexed by Kind; 0 is unused

  struct Counter {
    std::atomic<uint64_t> packets{0};
    std::atomic<uint64_t> bytes{0};
  };

  struct WakelockStat {
    std::string last_wall_clock;
    int64_t last_duration_ms = 0;
    uint32_t last_wake_count = 0;
    uint64_t periods = 0;
    int64_t longest_ms = 0;
    int64_t total_ms = 0;
  };

  BtActivitiesLogger() = default;

  std::string ReportWakelock();
  std::string ReportController();

  std::atomic<bool> logging_{false};
  std::atomic<bool> bluetooth_on_{false};
  std::atomic<uint64_t> times_enabled_{0};
  std::array<Counter, kKinds> counters_;

  std::mutex mutex_;  // guards what follows
  WakelockStat wakelock_;
  uint64_t controller_answers_ = 0;
  ControllerActivity controller_latest_{};
};

}  // namespace android::hardware::bluetooth
