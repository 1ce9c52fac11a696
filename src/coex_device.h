// The link to the combined wireless chip's coexistence driver, /dev/wbrc.
#pragma once

#include <cstdint>
#include <functional>

namespace android::hardware::bluetooth::coex_device {

// Codes of BtSend; the driver gets four bytes for each.
inline constexpr int kCoexBigHammerAck = 2;
inline constexpr int kCoexPowerGoingOff = 3;
inline constexpr int kCoexPowerIsOff = 4;
inline constexpr int kCoexPowerComingOn = 5;
inline constexpr int kCoexPowerIsOn = 6;

// A process-wide singleton, never destroyed. One poll thread per open device. DeviceOpen and DeviceClose are serialised
// by the service (DeviceClose also runs on the poll thread after a big hammer); BtSend may come from any thread.
class CoexDevice {
 public:
  static CoexDevice& Get();

  // Opens the device and starts its poll thread. `handler` runs on that thread when the driver resets the whole chip
  // (big hammer); `pause_ms` is waited after it. On an open device with a live thread both are replaced. Returns the
  // descriptor (0 or more; it stays this object's) or -1.
  int DeviceOpen(std::function<void()> handler, int pause_ms);

  // Ends the poll thread (by force after one second) and closes the device.
  void DeviceClose();

  // Sends one message; false (logged) when the device is closed or the write fails.
  static bool BtSend(CoexDevice* device, int code);

  // Reads and acts on one event; 0 or a negative errno. Poll thread.
  static int ReadEvent(CoexDevice* device);

 private:
  CoexDevice() = default;
};

}  // namespace android::hardware::bluetooth::coex_device
