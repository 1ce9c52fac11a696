// Where the device's absolute paths lie on this machine.
#pragma once

#include <string>
#include <string_view>

namespace android::hardware::bluetooth::os {

// Returns `path` (absolute, as the device knows it) below the device root. The root is environment variable BTHAL_ROOT
// on Linux, read at every call; unset, empty, or on Android, the path stands as it is. Any thread.
std::string DevicePath(std::string_view path);

}  // namespace android::hardware::bluetooth::os
