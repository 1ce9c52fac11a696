#include "bthal/run/machine_check.h"

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "bthal/hci/hex.h"
#include "bthal/run/power_switch.h"
#include "bthal/show/known_names.h"
#include "conf/conf.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::hardware::bluetooth::conf::Config;
using ::android::hardware::bluetooth::os::DevicePath;

constexpr uint32_t kUserialTty = 1;
constexpr uint32_t kUserialSensorHub = 2;

bool Exists(const std::string& path) { return access(DevicePath(path).c_str(), F_OK) == 0; }

bool MayUse(const std::string& path, int mode) {
  return faccessat(AT_FDCWD, DevicePath(path).c_str(), mode, AT_EACCESS) == 0;
}

CheckResult Ok(std::string name, std::string found) {
  return {.name = std::move(name), .state = CheckState::kOk, .needed = false, .found = std::move(found), .remedy = ""};
}

// A node that must be there and allow `mode`.
CheckResult Node(const std::string& name, const std::string& path, int mode, bool needed, const std::string& provide) {
  if (!Exists(path)) return {name, CheckState::kMissing, needed, path + " is not there", provide};
  if (!MayUse(path, mode)) {
    return {name, CheckState::kNotPermitted, needed, path + ": " + strerror(errno),
            "give the service's user the right to use it (chown, chmod, or a udev rule), or run as root"};
  }
  return Ok(name, path);
}

CheckResult Transport() {
  const Config config = Config::Preview();
  const uint32_t type = config.GetUserialType();
  if (type == kUserialTty) {
    CheckResult result = Node("controller's tty", config.uart_port, R_OK | W_OK, true,
                              "set UartPort in /vendor/etc/bluetooth/bt_vendor.conf to the controller's tty, or "
                              "UserialType = 0 for the HCI user channel");
    struct stat info = {};
    if (result.state == CheckState::kOk && stat(DevicePath(config.uart_port).c_str(), &info) == 0 &&
        !S_ISCHR(info.st_mode)) {
      result = {result.name, CheckState::kMissing, true, config.uart_port + " is no terminal device",
                "set UartPort to the controller's tty"};
    }
    return result;
  }
  if (type == kUserialSensorHub) {
    return {"controller's tty", CheckState::kMissing, true, "UserialType = 2 asks for a sensor hub, there is none here",
            "set UserialType = 1 (tty) or 0 (HCI user channel)"};
  }
  constexpr int kHciProtocol = 1;
  const ::android::base::unique_fd socket(::socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC, kHciProtocol));
  if (!socket.ok()) {
    return {"HCI user channel", errno == EPERM ? CheckState::kNotPermitted : CheckState::kMissing, true,
            StringPrintf("no Bluetooth socket: %s", strerror(errno)),
            "load the kernel's bluetooth module (modprobe bluetooth hci_uart), and run as root"};
  }
  if (!Exists("/sys/class/bluetooth/hci0")) {
    return {"HCI user channel", CheckState::kMissing, true, "there is no hci0",
            "attach the controller (btattach), and leave it down: hciconfig hci0 down"};
  }
  return Ok("HCI user channel", "hci0");
}

CheckResult PowerSwitch() {
  const std::string name = "power switch";
  if (const std::string entry = FindPowerSwitch(); !entry.empty()) {
    return Node(name, entry + "/state", W_OK, true, "rfkill's node is incomplete: is the driver loaded?");
  }
  return {name, CheckState::kMissing, false, "no rfkill entry of type bluetooth",
          "none needed where something else powers the controller; it will not be power-cycled"};
}

CheckResult Address() {
  constexpr char kNode[] = "/proc/device-tree/chosen/config/bt_addr";
  constexpr char kProperty[] = "ro.vendor.bluetooth.evb_bdaddr";
  std::string text;
  std::string source = kNode;
  if (!::android::base::ReadFileToString(DevicePath(kNode), &text, true)) {
    text = ::android::base::GetProperty(kProperty, "");
    source = kProperty;
  }
  const std::string first_line = text.substr(0, text.find_first_of("\r\n"));
  const std::optional<std::vector<uint8_t>> bytes = ParseHex(first_line);
  if (bytes && bytes->size() == 6) return Ok("Bluetooth address", first_line + " (" + source + ")");
  return {"Bluetooth address", CheckState::kMissing, true,
          text.empty() ? StringPrintf("neither %s nor %s", kNode, kProperty) : source + " holds '" + first_line + "'",
          StringPrintf("bthal prop set %s AA:BB:CC:DD:EE:FF", kProperty)};
}

CheckResult Firmware() {
  constexpr char kFolder[] = "/vendor/firmware/qnlr/";
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(DevicePath(kFolder).c_str()), closedir);
  int patches = 0;
  int readable = 0;
  while (const dirent* entry = folder == nullptr ? nullptr : readdir(folder.get())) {
    if (!std::string_view(entry->d_name).ends_with(".hcd")) continue;
    ++patches;
    if (MayUse(kFolder + std::string(entry->d_name), R_OK)) ++readable;
  }
  if (patches == 0) {
    return {"firmware patches", CheckState::kMissing, true, StringPrintf("no .hcd file in %s", kFolder),
            "put the controller's patch files there: QNL_<chip id>.hcd, QNL_188_U.hcd, or QNL.hcd for any"};
  }
  if (readable < patches) {
    return {"firmware patches", CheckState::kNotPermitted, true,
            StringPrintf("%d of %d in %s cannot be read", patches - readable, patches, kFolder), "chmod a+r them"};
  }
  return Ok("firmware patches", StringPrintf("%d in %s", patches, kFolder));
}

// A folder that can be written to, or made by whoever starts the service.
CheckResult Folder(const std::string& name, const std::string& path, bool may_be_made) {
  if (Exists(path)) {
    return Node(name, path, W_OK | X_OK, true, "");
  }
  if (may_be_made) {
    std::string above = path;
    while (above.size() > 1 && !Exists(above)) above = ::android::base::Dirname(above);
    if (MayUse(above, W_OK | X_OK)) return Ok(name, path + " (made when first used)");
    return {name, CheckState::kNotPermitted, true, path + " is not there, and cannot be made",
            "install -d -m 0700 -o <the service's user> " + DevicePath(path)};
  }
  return {name, CheckState::kMissing, true, path + " is not there", "mkdir -p " + DevicePath(path)};
}

CheckResult Settings() {
  CheckResult result = Node("vendor settings", "/vendor/etc/bluetooth/bt_vendor.conf", R_OK, false,
                            "without it every setting has its default: see bthal conf");
  const std::vector<std::string> problems = SettingsProblems();
  if (result.state != CheckState::kOk || problems.empty()) return result;
  return {result.name, CheckState::kWrong, false, problems.front(),
          problems.size() == 1 ? "correct it (bthal conf --explain)"
                               : StringPrintf("correct it, and %zu more: bthal conf", problems.size() - 1)};
}

CheckResult RealTime() {
  const std::string name = "real-time priority";
  const int policy = sched_getscheduler(0);
  sched_param old = {};
  sched_getparam(0, &old);
  const sched_param lowest = {.sched_priority = 1};
  if (sched_setscheduler(0, SCHED_FIFO, &lowest) == 0) {
    sched_setscheduler(0, policy, &old);
    return Ok(name, "SCHED_FIFO is granted");
  }
  return {name, CheckState::kNotPermitted, false, StringPrintf("SCHED_FIFO: %s", strerror(errno)),
          "setcap cap_sys_nice+ep on the service, or run it as root; without it reading may be late under load"};
}

}  // namespace

std::vector<CheckResult> CheckMachine() {
  const std::string sleep = "without it the controller is never let sleep; load the vendor's bluetooth sleep driver";
  const std::string wake =
      "needs a kernel with CONFIG_PM_WAKELOCKS; without it the machine may suspend while traffic runs";
  return {
      Folder("Binder, properties", "/run/bthal", true),
      Folder("lasting properties", "/var/lib/bthal", true),
      Settings(),
      Node("coexistence driver", "/dev/wbrc", R_OK | W_OK, true,
           "load the vendor's driver, or let 'bthal board --only coex' play it"),
      PowerSwitch(),
      Transport(),
      Firmware(),
      Address(),
      Node("sleep driver", "/proc/bluetooth/sleep/lpm", W_OK, false, sleep),
      Node("wake line", "/proc/bluetooth/sleep/btwrite", W_OK, false, sleep),
      Node("wake lock", "/sys/power/wake_lock", W_OK, false, wake),
      Node("wake unlock", "/sys/power/wake_unlock", W_OK, false, wake),
      Folder("packet log", "/data/vendor/bluetooth", false),
      Folder("crash files", "/data/vendor/ssrdump", false),
      Folder("crash memory", "/data/vendor/ssrdump/coredump", false),
      RealTime(),
  };
}

}  // namespace bthal::tool
