// The rfkill entry: which one it is, whose it is, and which one it is not.
#include <android-base/file.h>
#include <linux/capability.h>

#include "bthal/check/parts.h"
#include "bthal/run/power_switch.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::hardware::bluetooth::os::DevicePath;

constexpr char kName[] = "power switch";

std::string Words(const RfkillEntry& entry) {
  return entry.name.empty() ? entry.path : entry.path + " [" + entry.name + "]";
}

// An adapter's own entry bears the adapter's name. Only the user channel's controller is one of the kernel's adapters.
bool IsOthers(const RfkillEntry& entry, bool user_channel) {
  return entry.name.starts_with("hci") && !(user_channel && entry.name == "hci0");
}

std::string DriverOf(const std::string& adapter) {
  std::string driver;
  ::android::base::Readlink(DevicePath("/sys/class/bluetooth/" + adapter + "/device/driver"), &driver);
  return driver.empty() ? "its driver" : ::android::base::Basename(driver);
}

CheckResult OthersSwitch(const RfkillEntry& entry) {
  return {kName, CheckState::kWrong, false,
          entry.path + " is the switch of " + entry.name + ", another adapter: the service would switch that one off",
          "unload " + DriverOf(entry.name) +
              ", or load the driver of the controller's own switch first: the lowest "
              "number is taken"};
}

CheckResult NoSwitch(bool user_channel) {
  for (const RfkillEntry& entry : UnreachedBluetoothEntries()) {
    if (IsOthers(entry, user_channel)) continue;
    return {kName, CheckState::kWrong, false,
            Words(entry) + " is not found: the search ends at the first number that is missing",
            "a number is given once a boot: reboot, and have the switch's driver loaded before others come and go"};
  }
  return {kName, CheckState::kMissing, false, "no rfkill entry of type bluetooth",
          "the switch's driver, unless something else powers the controller; without it no power cycle helps"};
}

}  // namespace

CheckResult PowerSwitch(bool user_channel) {
  const std::vector<RfkillEntry> entries = ReachedBluetoothEntries();
  if (entries.empty()) return NoSwitch(user_channel);
  const RfkillEntry& entry = entries.front();
  if (IsOthers(entry, user_channel)) return OthersSwitch(entry);
  CheckResult result = KernelNode(kName, entry.path + "/state", CAP_NET_ADMIN, true,
                                  "rfkill's node is incomplete: is the driver loaded?");
  if (result.state == CheckState::kOk) result.found = Words(entry);
  return result;
}

}  // namespace bthal::tool
