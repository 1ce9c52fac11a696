// System properties that more than one component reads or writes.
#pragma once

#include <string>

namespace android::hardware::bluetooth::conf {

// Anything but "false" switches accelerated Bluetooth-on off, across restarts.
inline constexpr char kDisableAccelerateBtOnProperty[] = "persist.bluetooth.disable.accelerate.bt.on";

// Until the next reboot the direct UART stands in for the sensor hub. Not persistent.
inline constexpr char kUartFallbackProperty[] = "bluetooth.uart.fallback";
bool IsBtUartFallback();

// How much of the traffic the host stack's log takes: "disabled", "filtered", "full", ...
inline constexpr char kBtSnoopLogModeProperty[] = "persist.bluetooth.btsnooplogmode";

// The stage of the hardware that this is, as its maker names it; "default" where it does not say.
std::string HardwareStage();

}  // namespace android::hardware::bluetooth::conf
