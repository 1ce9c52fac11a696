// What the shim's files share of the path in force.
#pragma once

#include <atomic>
#include <cstdint>

#include "conf/userial_type.h"

namespace android::hardware::bluetooth::hci::shim {

// Changed by bring-up and teardown only.
inline std::atomic<uint32_t> userial_type_in_force{conf::kUserialAutoInit};

// Every type but the sensor hub's.
inline bool IsUartPath() { return userial_type_in_force != conf::kUserialAoc; }

}  // namespace android::hardware::bluetooth::hci::shim
