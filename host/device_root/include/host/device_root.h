// The folder that plays the device's root on this machine.
#pragma once

#include <string>
#include <string_view>

namespace bthal::host {

// Returns `path` (absolute, as the device knows it) below the device root. The root is environment variable BTHAL_ROOT,
// read at every call; unset or empty, the machine itself is the device and the path stands as it is. Any thread.
std::string BelowDeviceRoot(std::string_view path);

}  // namespace bthal::host
