// Where this machine keeps what lasts until the next start of the device.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace bthal::host {

inline constexpr std::string_view kRunDirectory = "/run/bthal";

// Makes `path` (a device path, below kRunDirectory or elsewhere) and the folders above it, and returns where it lies.
// kRunDirectory itself is closed to other users: without a device root it is a place of the whole machine. Empty on
// failure, with errno set; EPERM for a place that is another user's. Any thread.
std::string MakeDirectory(std::string_view path);

// Whether the folder `path` and those above it, up to the device root, belong to this process's user or to root:
// another user could put there what he likes. For root the first of them decides: its owner let the others be made.
// With a false answer errno is set; EPERM, and a line in the log for the first one found, for another user's. Any
// thread.
bool IsOwnDirectory(std::string_view path);

}  // namespace bthal::host
