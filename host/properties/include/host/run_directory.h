// Where this machine keeps what lasts until the next start of the device.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace bthal::host {

inline constexpr std::string_view kRunDirectory = "/run/bthal";

// Makes `path` (a device path, below kRunDirectory or elsewhere) and the folders above it, and returns where it lies.
// kRunDirectory itself is closed to other users: without a device root it is a place of the whole machine. Empty on
// failure, with errno set. Any thread.
std::string MakeDirectory(std::string_view path);

}  // namespace bthal::host
