// The checks that take more than a look at a node, one file each.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "bthal/check/result.h"
#include "conf/conf.h"

namespace bthal::tool {

inline constexpr char kSettingsFile[] = "/vendor/etc/bluetooth/bt_vendor.conf";

// Whether the node at `path` (a device path) is there and allows `mode`.
CheckResult Node(const std::string& name, const std::string& path, int mode, bool needed, const std::string& provide);

// The same of a node to be written to. One that is the kernel's own asks for `capability` besides the file's mode.
CheckResult KernelNode(const std::string& name, const std::string& path, int capability, bool needed,
                       const std::string& provide);

// The rfkill entry that the service switches; `user_channel`: whether hci0 is its controller.
CheckResult PowerSwitch(bool user_channel);

// hci0, and whether it can be kept up between clients.
std::vector<CheckResult> UserChannel(const ::android::hardware::bluetooth::conf::Config& config);

// The tty, the speed it reaches, and its flow control. The speed is set and put back where nobody else has the port.
std::vector<CheckResult> Port(const std::string& path);

// The sensor hub; where it is given up until the next boot, the tty as well.
std::vector<CheckResult> SensorHub(const ::android::hardware::bluetooth::conf::Config& config);

// The address, as the service itself would read it.
CheckResult Address();

}  // namespace bthal::tool
