#include <hardware_legacy/power.h>

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <android-base/unique_fd.h>

#include "host/device_root.h"

namespace {

int WriteName(const char* node, const char* id) {
  const std::string path = bthal::host::BelowDeviceRoot(node);
  // O_NONBLOCK: where the node is played by a FIFO without a reader, the caller gets ENXIO instead of hanging.
  const android::base::unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)));
  if (fd.get() < 0) return -errno;
  // The kernel takes a trailing newline; a reader of the FIFO needs it to tell two names apart.
  const std::string line = std::string(id) + "\n";
  const ssize_t written = TEMP_FAILURE_RETRY(write(fd.get(), line.data(), line.size()));
  return written < 0 ? -errno : static_cast<int>(written);
}

}  // namespace

int acquire_wake_lock(int /*lock*/, const char* id) { return WriteName("/sys/power/wake_lock", id); }

int release_wake_lock(const char* id) { return WriteName("/sys/power/wake_unlock", id); }
