// How hardware control uses the kernel's one-character control nodes.
#pragma once

#include <sys/types.h>

#include <android-base/unique_fd.h>

namespace android::hardware::bluetooth::hwcontrol {

// Opens the node at `path` (a device path) for writing; invalid with errno set on failure. Never waits: where nobody
// stands behind the node (a FIFO without its reader) the open fails with ENXIO.
android::base::unique_fd OpenNode(const char* path);

// Writes the one character, again while interrupted. Returns 1, or what write returned, with errno.
ssize_t WriteNode(int fd, char value);

}  // namespace android::hardware::bluetooth::hwcontrol
