// Quality reports and the energy log: counted and kept for the dump.
#pragma once

#include <cstdint>
#include <string>

#include "h4/hci_packet.h"

namespace android::hardware::bluetooth {

// Counts the controller's quality reports by report id and keeps the latest of each. Process-wide; any thread.
class BluetoothBqr {
 public:
  static BluetoothBqr& Get();

  // `event`: a whole vendor event with sub-event 0x58; shorter ones are ignored.
  void OnQualityReport(const hci::HciPacket& event);
  // The Command Complete of the vendor capability command 0xFD53.
  void OnControllerCapability(const hci::HciPacket& event);

  // Lines for the dump, one a report id that was seen.
  std::string Report() const;
};

// Keeps the controller's energy-monitor reports while logging is started.
class BtBqrEnergyRecoder {
 public:
  static BtBqrEnergyRecoder& Get();

  void StartLogging();
  void StopLogging();
  void OnEnergyReport(const hci::HciPacket& event);
};

}  // namespace android::hardware::bluetooth
