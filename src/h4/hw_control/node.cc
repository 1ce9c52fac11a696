#include "h4/hw_control/node.h"

#include <fcntl.h>
#include <unistd.h>

#include "os/device_path.h"

namespace android::hardware::bluetooth::hwcontrol {

android::base::unique_fd OpenNode(const char* path) {
  android::base::unique_fd fd(
      TEMP_FAILURE_RETRY(open(os::DevicePath(path).c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK)));
  // Only the open must not wait; writes behave as the node's driver has it.
  if (fd.ok()) fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
  return fd;
}

ssize_t WriteNode(int fd, char value) { return TEMP_FAILURE_RETRY(write(fd, &value, 1)); }

}  // namespace android::hardware::bluetooth::hwcontrol
