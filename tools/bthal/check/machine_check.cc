#include "bthal/check/machine_check.h"

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <sched.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string_view>

#include "bthal/check/parts.h"
#include "bthal/check/service_user.h"
#include "bthal/cli/shell_quotes.h"
#include "bthal/show/known_names.h"
#include "conf/conf.h"
#include "conf/userial_type.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::hardware::bluetooth::conf::Config;
using ::android::hardware::bluetooth::os::DevicePath;

using ::android::hardware::bluetooth::conf::kUserialAoc;
using ::android::hardware::bluetooth::conf::kUserialApm;
using ::android::hardware::bluetooth::conf::kUserialAutoInit;

bool Exists(const std::string& path) { return access(DevicePath(path).c_str(), F_OK) == 0; }

// As far as its mode goes.
bool MayUse(const std::string& path, int mode) {
  return faccessat(AT_FDCWD, DevicePath(path).c_str(), mode, AT_EACCESS) == 0;
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

// The Binder's folder and the properties' are used only where they are the own user's or root's.
CheckResult Owned(CheckResult result, const std::string& path) {
  struct stat info = {};
  const bool strange = stat(DevicePath(path).c_str(), &info) == 0 && info.st_uid != 0 && info.st_uid != geteuid();
  if (geteuid() == 0 || !strange) return result;
  return {result.name, CheckState::kNotPermitted, true, StringPrintf("%s is user %u's", path.c_str(), info.st_uid),
          "chown -R <the service's user> " + QuotedIfNeeded(DevicePath(path))};
}

// A folder that can be written to, or made by whoever starts the service.
CheckResult Folder(const std::string& name, const std::string& path, bool may_be_made) {
  if (Exists(path)) return Owned(Node(name, path, W_OK | X_OK, true, ""), path);
  if (may_be_made) {
    std::string above = path;
    while (above.size() > 1 && !Exists(above)) above = ::android::base::Dirname(above);
    if (MayUse(above, W_OK | X_OK)) return Ok(name, path + " (made when first used)");
    return {name, CheckState::kNotPermitted, true, path + " is not there, and cannot be made",
            "install -d -m 0700 -o <the service's user> " + QuotedIfNeeded(DevicePath(path))};
  }
  return {name, CheckState::kMissing, true, path + " is not there", "mkdir -p " + QuotedIfNeeded(DevicePath(path))};
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
  const std::string refused = StringPrintf("SCHED_FIFO: %s", strerror(errno));
  const std::string loss = "; without it reading may be late under load";
  if (!ServiceHas(CAP_SYS_NICE)) {
    return {name, CheckState::kNotPermitted, false, refused, HowToGrant() + loss};
  }
  if (geteuid() != 0) return Ok(name, "SCHED_FIFO: the service's file has CAP_SYS_NICE");
  return {name, CheckState::kNotPermitted, false, refused + ", in spite of CAP_SYS_NICE",
          "real-time time for this control group" + loss};
}

// The path that the service takes: a property and an early chip can overrule the settings.
uint32_t UserialType(const Config& config) {
  const std::string path = ::android::base::GetProperty("persist.vendor.bluetooth.uart_path_override", "default");
  if (path == "apm") return kUserialApm;
  if (path == "aoc") return kUserialAoc;
  const bool early = ::android::base::GetIntProperty("ro.boot.hw.soc.rev", 0) == 0;
  return config.DoNeedAocPowerPinCtrlCheck() && early ? kUserialApm : config.GetUserialType();
}

// The way to the controller.
std::vector<CheckResult> Path(const Config& config, uint32_t type) {
  if (type == kUserialApm) return Port(config.uart_port);
  return type == kUserialAoc ? SensorHub(config) : UserChannel(config);
}

// What the service brings a controller up with by itself; with the HCI user channel the kernel's driver has done it.
std::vector<CheckResult> OwnBringUp() {
  const std::string sleep = "the vendor's bluetooth sleep driver; without it the controller is never let sleep";
  const std::string wake = "a kernel with CONFIG_PM_WAKELOCKS; without it the machine may suspend while traffic runs";
  return {
      Firmware(),
      Node("sleep driver", "/proc/bluetooth/sleep/lpm", W_OK, false, sleep),
      Node("wake line", "/proc/bluetooth/sleep/btwrite", W_OK, false, sleep),
      KernelNode("wake lock", "/sys/power/wake_lock", CAP_BLOCK_SUSPEND, false, wake),
      KernelNode("wake unlock", "/sys/power/wake_unlock", CAP_BLOCK_SUSPEND, false, wake),
  };
}

}  // namespace

CheckResult Node(const std::string& name, const std::string& path, int mode, bool needed, const std::string& provide) {
  if (!Exists(path)) return {name, CheckState::kMissing, needed, path + " is not there", provide};
  if (!MayUse(path, mode)) {
    return {name, CheckState::kNotPermitted, needed, path + ": " + strerror(errno),
            "the right to use it for the service's user (chown, chmod, or a udev rule)"};
  }
  return Ok(name, path);
}

CheckResult KernelNode(const std::string& name, const std::string& path, int capability, bool needed,
                       const std::string& provide) {
  CheckResult result = Node(name, path, W_OK, needed, provide);
  struct statfs system = {};
  const bool kernels = statfs(DevicePath(path).c_str(), &system) == 0 && system.f_type == SYSFS_MAGIC;
  if (result.state != CheckState::kOk || !kernels || ServiceHas(capability)) return result;
  const char* missing = capability == CAP_NET_ADMIN ? "CAP_NET_ADMIN" : "CAP_BLOCK_SUSPEND";
  return {name, CheckState::kNotPermitted, needed, path + " takes " + missing, HowToGrant()};
}

std::vector<CheckResult> CheckMachine() {
  const Config config = Config::Preview();
  const uint32_t type = UserialType(config);
  std::vector<CheckResult> results = {
      Folder("Binder, properties", "/run/bthal", true),
      Folder("lasting properties", "/var/lib/bthal", true),
      Settings(),
      Node("coexistence driver", "/dev/wbrc", R_OK | W_OK, true,
           "load the vendor's driver, or let 'bthal board --only coex' play it"),
      PowerSwitch(/*user_channel=*/type != kUserialApm && type != kUserialAoc),
  };
  std::ranges::move(Path(config, type), std::back_inserter(results));
  if (type != kUserialAutoInit) std::ranges::move(OwnBringUp(), std::back_inserter(results));
  std::ranges::move(
      std::vector<CheckResult>{
          Address(),
          Folder("packet log", "/data/vendor/bluetooth", false),
          Folder("crash files", "/data/vendor/ssrdump", false),
          Folder("crash memory", "/data/vendor/ssrdump/coredump", false),
          RealTime(),
      },
      std::back_inserter(results));
  return results;
}

}  // namespace bthal::tool
