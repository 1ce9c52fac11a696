// Quality reports and the energy log: counted and kept for the dump.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth {

inline constexpr char kBqrEnergyLogPath[] = "/data/vendor/bluetooth/bqr_energy_report.log";

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

 private:
  static constexpr size_t kReportIds = 33;  // 0 is unused

  struct Kept {
    uint64_t count = 0;
    hci::HciPacket latest;
  };

  BluetoothBqr() = default;

  mutable std::mutex mutex_;
  std::array<Kept, kReportIds> reports_;
  Kept capability_;
};

// Writes the controller's energy-monitor reports to a text log, one line a report, while logging is started and the
// configuration asks for it; otherwise it does nothing. Process-wide; any thread.
class BtBqrEnergyRecoder {
 public:
  static BtBqrEnergyRecoder& Get();

  void StartLogging();
  void StopLogging();
  void OnEnergyReport(const hci::HciPacket& event);

 private:
  BtBqrEnergyRecoder() = default;

  std::mutex mutex_;
  std::ofstream log_;
};

}  // namespace android::hardware::bluetooth
