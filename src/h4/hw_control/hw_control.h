// The one place that touches the host-side hardware of the controller. It holds no policy.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "h4/hw_control/uart_baud_rate.h"

namespace android::hardware::bluetooth::hwcontrol {

// A process-wide singleton without a lock: the shim serialises power, open and close; LpmSuspend and LpmWakeUp may come
// from the transmit path and from the wake timer and only write one byte to an open descriptor.
class BtHwControl {
 public:
  static BtHwControl& Get();

  // Switches the controller's power through the kernel's rfkill entry of type "bluetooth", telling the coexistence
  // device before and after. True without such an entry: then the power sequence is somebody else's.
  bool PowerControl(bool enable);

  // Tells the coexistence device of a power change: coming (`after` false) or done.
  bool BtRegOnCoordinate(bool enabling, bool after);

  // Opens the tty (userial type conf::kUserialApm) raw at 115200 bit/s with RTS/CTS, or the HCI user channel (any other
  // type).
  bool UserialOpen(uint32_t userial_type);
  void UserialClose();

  // The open transport descriptor, or -1. It stays this object's.
  int userial_fd() const { return userial_fd_; }

  // Changes the host's speed only: 115200, 3000000 or 4000000; any other value is logged and leaves the port alone.
  void BaudrateChange(UartBaudRate rate);

  // Switches the UART driver's skip-suspend mode.
  bool UartSkipSuspend(bool enable);

  // The kernel's low-power-mode driver. LpmSetup leaves the wake line asserted; after a failure LPM is torn down.
  bool LpmSetup();
  void LpmTeardown();
  // De-assert or assert the host wake line; LpmWakeUp then waits 10 ms for the controller. True at once without LPM.
  bool LpmSuspend();
  bool LpmWakeUp();
  bool IsLpmRunning() const { return lpm_fd_ >= 0; }

  // The battery level as text ("87").
  bool GetBatteryPercentage(std::string& out);

  // Copies the debugfs file at `path` (a device path) into the dump at `fd` (the caller's), in one write.
  void GetFsDebugDump(int fd, const std::string& path);

 private:
  constexpr BtHwControl() = default;

  std::atomic<int> userial_fd_{-1};
  std::atomic<int> lpm_fd_{-1};
};

}  // namespace android::hardware::bluetooth::hwcontrol
