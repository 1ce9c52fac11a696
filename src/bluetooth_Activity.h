// Activity statistics: what crossed the service, by kind, and how long the link was kept awake.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "h4/hci_packet.h"

namespace android::hardware::bluetooth {

// Process-wide, never destroyed; any thread.
class BtActivitiesLogger {
 public:
  // The kinds of LogActivities.
  enum Kind : uint8_t { kCommand = 1, kEvent = 2, kAclToController = 3, kAclFromController = 4 };

  static BtActivitiesLogger& Get();

  void OnBluetoothEnabled();
  void OnBluetoothDisabled();
  void StartLogging();
  void StopLogging();

  // Counts one packet; on the packet path, so it neither allocates nor locks.
  void LogActivities(Kind kind, const hci::HciPacket& packet);

  // One awake period of the low-power link that lasted 3001 ms or more.
  void UpdateBthalWakelockStat(const std::string& wall_clock, int64_t duration_ms, uint32_t wake_count);

  // Brings the figures up to date and returns them as lines of text.
  std::string Report();
};

}  // namespace android::hardware::bluetooth
