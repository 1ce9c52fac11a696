// How the service reaches the controller: the values of the setting "UserialType".
#pragma once

#include <cstdint>

namespace android::hardware::bluetooth::conf {

inline constexpr uint32_t kUserialAutoInit = 0;       // the kernel's driver initialises the controller itself
inline constexpr uint32_t kUserialApm = 1;            // direct UART path
inline constexpr uint32_t kUserialAoc = 2;            // sensor-hub path
inline constexpr uint32_t kUserialDeinitialized = 3;  // no setting: what is in force while nothing is open

// On Linux the sensor hub listens here.
inline constexpr char kSensorHubFolder[] = "/run/bthal";
inline constexpr char kSensorHubSocket[] = "sensor-hub";
// Ends with the boot: the sensor hub was lost for good, and the next process takes the direct UART.
inline constexpr char kSensorHubDeadProperty[] = "bluetooth.usf.dead";

}  // namespace android::hardware::bluetooth::conf
