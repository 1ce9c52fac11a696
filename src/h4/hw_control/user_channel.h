// The kernel's HCI user channel: a controller that the kernel's driver has brought up, lent to one process whole.
#pragma once

#include <string>

#include <android-base/unique_fd.h>

namespace android::hardware::bluetooth::hwcontrol {

// Opens that of hci0. Invalid where the kernel refuses; the log then says why, and what the kernel has instead.
::android::base::unique_fd userial_socket_open();

// What has become of hci0 where reading `fd`, its user channel, has failed with `error`; empty for a tty and for any
// other error.
std::string LostUserChannel(int fd, int error);

}  // namespace android::hardware::bluetooth::hwcontrol
