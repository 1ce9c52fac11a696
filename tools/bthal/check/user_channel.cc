// hci0, which the service takes from the kernel where it does not open a tty.
#include <android-base/file.h>
#include <android-base/strings.h>
#include <errno.h>
#include <host/role.h>
#include <linux/capability.h>
#include <string.h>

#include <filesystem>

#include "bthal/check/hci_devices.h"
#include "bthal/check/parts.h"
#include "bthal/check/service_user.h"
#include "bthal/run/power_switch.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::hardware::bluetooth::conf::Config;
using ::android::hardware::bluetooth::os::DevicePath;

constexpr char kName[] = "HCI user channel";
constexpr char kAdapter[] = "hci0";
constexpr char kAdapterFolder[] = "/sys/class/bluetooth/hci0";

CheckResult Needed(CheckState state, std::string found, std::string remedy) {
  return {kName, state, true, std::move(found), std::move(remedy)};
}

CheckResult NoKernel() {
  return Needed(CheckState::kMissing, std::string("no Bluetooth socket: ") + strerror(errno),
                "a kernel with Bluetooth: modprobe bluetooth");
}

CheckResult NoHci0(const std::vector<HciDevice>& devices) {
  if (devices.empty()) {
    return Needed(CheckState::kMissing, "the kernel has no controller",
                  "load its driver (modprobe btusb), or attach it (btattach)");
  }
  std::vector<std::string> others;
  others.reserve(devices.size());
  for (const HciDevice& device : devices) others.push_back("hci" + std::to_string(device.number));
  return Needed(CheckState::kMissing, "there is no hci0, but " + ::android::base::Join(others, ", "),
                "unplug it, or unload its driver, and begin anew while nothing has the old hci0: the lowest number "
                "that is free is given");
}

bool Says(const std::filesystem::path& node, const char* text) {
  std::string content;
  return ::android::base::ReadFileToString(node, &content, true) && ::android::base::Trim(content) == text;
}

// Its own rfkill entry; empty without one.
std::filesystem::path OwnEntry() {
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator(DevicePath(kAdapterFolder), none)) {
    if (entry.path().filename().string().starts_with("rfkill")) return entry.path();
  }
  return {};
}

bool IsSwitchedByService() {
  const std::vector<RfkillEntry> entries = ReachedBluetoothEntries();
  return !entries.empty() && entries.front().name == kAdapter;
}

CheckResult Judged(const HciDevice& device) {
  const std::string words = "hci0 (" + device.bus + ")";
  if (device.lent) {
    if (const pid_t service = ::bthal::host::HolderOfRole(::bthal::host::kServiceRole)) {
      return Ok(kName, words + ", the service has it (process " + std::to_string(service) + ")");
    }
    return Needed(CheckState::kWrong, words + " is busy: another process has its user channel", "end that process");
  }
  const std::filesystem::path entry = OwnEntry();
  if (!entry.empty() && Says(entry / "hard", "1")) {
    return Needed(CheckState::kWrong, words + " is blocked by a hardware switch", "switch it on: see rfkill list");
  }
  // Its own entry goes off and on before the channel is opened.
  if (IsSwitchedByService()) {
    return Ok(kName, words + (device.up ? ", up: the service switches it off, and takes it" : ", down"));
  }
  if (!entry.empty() && Says(entry / "soft", "1")) {
    return Needed(CheckState::kWrong, words + " is blocked by rfkill", "rfkill unblock bluetooth");
  }
  if (device.up) {
    return Needed(CheckState::kWrong, words + " is up: the kernel's own host stack has it",
                  "bluetoothctl power off, and systemctl stop bluetooth, which would switch it on again");
  }
  return Ok(kName, words + ", down");
}

CheckResult Channel(const std::optional<std::vector<HciDevice>>& devices) {
  if (!devices) return NoKernel();
  if (devices->empty() || devices->front().number != 0) return NoHci0(*devices);
  CheckResult result = Judged(devices->front());
  if (result.state != CheckState::kOk || ServiceHas(CAP_NET_ADMIN)) return result;
  return Needed(CheckState::kNotPermitted, result.found + ": takes CAP_NET_ADMIN", HowToGrant());
}

// A controller that stays up between clients is reset for the next one with vendor commands.
CheckResult KeptUp(const Config& config, const std::string& bus) {
  const std::string name = "accelerated on";
  if (!config.IsAcceleratedBtOnSupported()) return Ok(name, "off: works with every controller");
  const std::string remedy = std::string("AccelBtDisable = true in ") + kSettingsFile;
  if (bus == "UART") {
    return {name, CheckState::kUnknown, false, "on: works where hci0 knows the vendor's commands", remedy + " if not"};
  }
  return {name, CheckState::kWrong, true, "on: a standard controller lacks the vendor's reset, and serves no client",
          remedy};
}

}  // namespace

std::vector<CheckResult> UserChannel(const Config& config) {
  const auto devices = HciDevices();
  const CheckResult channel = Channel(devices);
  const bool found = devices && !devices->empty() && devices->front().number == 0;
  return {channel, KeptUp(config, found ? devices->front().bus : "")};
}

}  // namespace bthal::tool
