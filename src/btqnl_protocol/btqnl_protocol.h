// Brings the controller from powered, with the port open, to ready for the host stack, and keeps its link awake.
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "debug_central/bqr_error_code.h"
#include "h4/hw_control/uart_baud_rate.h"
#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth {

// A process-wide singleton, never destroyed. Initialize, Shutdown and AcceleratedReset are serialised by the service.
class BtQnlProtocol {
 public:
  static BtQnlProtocol& GetInstacne();

  // Reset, identification, working speed, firmware, second reset, speed, local name, low-power mode. On false the error
  // has been reported and Shutdown done. `flow_control` is the channel's.
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
  // The steps of firmware_download. `fd` is an open patch file, positioned at its start; it stays the caller's. In fast
  // mode the controller acknowledges no patch record, only the launch.
  bool enable_fast_download();
  bool download_direct(int fd, bool fast);
  bool download_passthrough(int fd);
  // Asks the controller, and remembers the answer in "persist.bluetooth.otp.status".
  bool isOtpWritten();
  // True when the patch for an unprogrammed OTP is the right one.
  bool check_firmware_file_by_otp_status();

  // Changes the speed of both ends, or only of this one (`host_only`, after a download).
  bool baudrate_change(UartBaudRate rate, bool host_only);

  // Sets up the link's low-power mode on both sides: the host's, and the controller's sleep mode.
  void lpm_setup();

  // True only while first_hci_reset runs.
  bool GetFirstHciResetFlag() const { return first_hci_reset_flag_; }
  uint8_t chip_id() const { return chip_id_; }
  // The controller's local name as read at bring-up.
  std::string local_name() const;

 private:
  BtQnlProtocol() = default;

  std::shared_ptr<hci::HciFlowControl> flow_control() const;
  uint8_t send_and_wait(uint16_t opcode, std::initializer_list<uint8_t> params = {});
  void send_debug_info_cmd();

  bool fail_bring_up(V1_1::qnlbtlinux::debug::BqrErrorCode code, const char* reason);
  uint8_t send_hci_reset();
  uint8_t read_btqnl_chip_id();

  std::vector<std::string> firmware_candidates();
  std::string find_firmware_file();
  bool decide_fast_download();
  bool start_minidriver();
  bool send_launch_ram(const char* operation);
  bool send_batch(const uint8_t* data, size_t length);

  mutable std::mutex mutex_;  // guards flow_control_ and local_name_
  hci::HciHandle flow_control_;
  std::atomic<uint8_t> chip_id_{0};
  std::string local_name_;
  std::atomic<bool> first_hci_reset_flag_{false};
};

}  // namespace android::hardware::bluetooth
