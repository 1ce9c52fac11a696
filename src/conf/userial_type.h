// How the service reaches the controller: the values of the setting "UserialType".
#pragma once

#include <cstdint>

namespace android::hardware::bluetooth::conf {

inline constexpr uint32_t kUserialAutoInit = 0;       // the kernel's driver initialises the controller itself
inline constexpr uint32_t kUserialApm = 1;            // direct UART path
inline constexpr uint32_t kUserialAoc = 2;            // sensor-hub path
inline constexpr uint32_t kUserialDeinitialized = 3;  // no setting: what is in force while nothing is open

}  // namespace android::hardware::bluetooth::conf
