// Brings the controller from powered, with the port open, to ready for the host stack, and keeps its link awake.
#pragma once

#include <signal.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "hci_flow_control.h"
#include "uart_baud_rate.h"

namespace android::hardware::bluetooth {

// A process-wide singleton, never destroyed. Initialize, Shutdown and AcceleratedReset are serialised by the service;
// LpmWakeUp is called on any sending thread under the flow-control lock, LpmWakeUpTimeout on the timer's thread.
class BtQnlProtocol {
 public:
  static BtQnlProtocol& GetInstacne();

  // Reset, identification, working speed, firmware, second reset, speed, local name, low-power mode. On false the error
  // has been reported and Shutdown done. `flow_control` is the shim's.
  bool Initialize(hci::HciFlowControl* flow_control);
  void Shutdown();

  // Resets an initialised controller. On false it has been asked for its debug information and given 500 ms to send it.
  bool AcceleratedReset();

  // Reset with power-cycle recovery: up to two attempts, each failure followed by a power cycle.
  bool first_hci_reset();
  // HCI Reset and chip identification; false unless both succeed.
  bool btqnl_reset();
  bool read_local_name();

  // Chooses and downloads the patch, launches it and follows the controller back to 115200 bit/s.
  bool firmware_download();

  // Changes the speed of both ends, or only of this one (`host_only`, after a download).
  bool baudrate_change(UartBaudRate rate, bool host_only);

  // The controller's sleep mode. The wake line is asserted before a transmission and dropped at the first timer expiry
  // that saw none since the one before; the wake lock is held while it is asserted.
  void lpm_setup();
  void lpm_teardown();
  void LpmWakeUp();
  void LpmWakeUpTimeout(sigval value);

  // True only while first_hci_reset runs.
  bool GetFirstHciResetFlag() const { return first_hci_reset_flag_; }
  uint8_t chip_id() const { return chip_id_; }
  // The controller's local name as read at bring-up.
  std::string local_name() const;

 private:
  BtQnlProtocol() = default;

  bool read_btqnl_chip_id();
  bool enable_fast_download();
  bool download_direct(int fd, bool fast);
  bool download_passthrough(int fd);
  bool isOtpWritten();
  bool check_firmware_file_by_otp_status();

  mutable std::mutex mutex_;  // guards flow_control_ and local_name_
  hci::HciHandle flow_control_;
  std::atomic<uint8_t> chip_id_{0};
  std::string local_name_;
  std::atomic<bool> first_hci_reset_flag_{false};
};

}  // namespace android::hardware::bluetooth
