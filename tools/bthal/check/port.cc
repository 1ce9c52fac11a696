// The controller's tty: what drives it, whether it reaches the working speed, and the line that lets the host send.
#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <host/role.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "bthal/check/parts.h"
#include "bthal/check/port_holders.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;
using ::android::hardware::bluetooth::os::DevicePath;

constexpr char kTty[] = "controller's tty";
constexpr char kSpeed[] = "working speed";
constexpr char kFlow[] = "flow control";
constexpr speed_t kWorkingSpeed = B4000000;

// A device number is the kernel's, wherever the device root is. Ports of hardware have a driver there; others only a
// line in the list of all, "NAME /dev/NODE MAJOR MINOR-MINOR KIND".
std::string DriverOf(dev_t device) {
  std::string link;
  const std::string node = StringPrintf("/sys/dev/char/%u:%u/device/driver", major(device), minor(device));
  if (::android::base::Readlink(node, &link)) return ::android::base::Basename(link);
  std::ifstream list("/proc/tty/drivers");
  for (std::string line; std::getline(list, line);) {
    const size_t node = line.find(" /dev/");
    if (node == line.npos) continue;
    std::istringstream words(line.substr(node));
    std::string path;
    unsigned number = 0, first = 0, last = 0;
    char dash = 0;
    words >> path >> number >> first;
    if (!(words >> dash >> last)) last = first;
    if (number == major(device) && minor(device) >= first && minor(device) <= last) {
      return ::android::base::Trim(line.substr(0, node));
    }
  }
  return "unknown";
}

// What the port answers with when it is told the working speed, and back as it was.
struct Trial {
  bool speed = false;
  bool flow_control = false;
};
Trial TryWorkingSpeed(int fd, const termios& before) {
  termios wanted = before;
  cfmakeraw(&wanted);
  wanted.c_cflag |= CRTSCTS;
  cfsetspeed(&wanted, kWorkingSpeed);
  tcsetattr(fd, TCSANOW, &wanted);
  termios taken = {};
  tcgetattr(fd, &taken);
  tcsetattr(fd, TCSANOW, &before);
  return {.speed = cfgetospeed(&taken) == kWorkingSpeed, .flow_control = (taken.c_cflag & CRTSCTS) != 0};
}

std::vector<CheckResult> Tried(int fd, const termios& before) {
  const Trial trial = TryWorkingSpeed(fd, before);
  std::vector<CheckResult> results;
  results.push_back(trial.speed ? Ok(kSpeed, "takes 4000000 bit/s")
                                : CheckResult{kSpeed, CheckState::kWrong, true, "does not take 4000000 bit/s",
                                              "a port whose clock reaches it: the controller is switched to it"});
  int lines = 0;
  if (!trial.flow_control) {
    results.push_back({kFlow, CheckState::kWrong, true, "the driver has no RTS/CTS", "a port with both lines wired"});
  } else if (ioctl(fd, TIOCMGET, &lines) != 0) {
    results.push_back(Ok(kFlow, "RTS/CTS; the port has no lines to look at"));
  } else if ((lines & TIOCM_CTS) != 0) {
    results.push_back(Ok(kFlow, "RTS/CTS; CTS is up"));
  } else {
    results.push_back({kFlow, CheckState::kUnknown, false, "RTS/CTS; CTS is down: nothing can be sent",
                       "none while the controller is off; once it has power, see the wire to its RTS"});
  }
  return results;
}

CheckResult NotTried(const std::string& why, const std::string& remedy) {
  return {kSpeed, CheckState::kUnknown, false, "not tried: " + why, remedy};
}

// The service may have its own port, and a pseudo-terminal has another end.
std::vector<CheckResult> InUse(CheckResult tty, const std::string& driver, const Holder& holder) {
  const std::string who = StringPrintf("process %d, %s, has the port", holder.process, holder.name.c_str());
  const bool expected =
      holder.process == ::bthal::host::HolderOfRole(::bthal::host::kServiceRole) || driver.starts_with("pty");
  if (!expected) {
    tty = {kTty, CheckState::kWrong, true, tty.found + ": " + who,
           "end it (a console: systemctl stop serial-getty@NAME, and no console=NAME for the kernel)"};
  }
  return {tty, NotTried(who, "look again when it has ended")};
}

}  // namespace

std::vector<CheckResult> Port(const std::string& path) {
  CheckResult tty = Node(kTty, path, R_OK | W_OK, true,
                         std::string("UartPort = the controller's tty in ") + kSettingsFile +
                             ", or UserialType = 0 for the HCI user channel");
  if (tty.state != CheckState::kOk) return {tty};
  struct stat info = {};
  const bool is_device = stat(DevicePath(path).c_str(), &info) == 0 && S_ISCHR(info.st_mode);
  // Only now opened: a FIFO in its place would wait.
  const unique_fd fd(is_device ? open(DevicePath(path).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC) : -1);
  termios before = {};
  if (!fd.ok() || tcgetattr(fd.get(), &before) != 0) {
    const char* why = !is_device || errno == ENOTTY ? "no terminal device" : strerror(errno);
    return {{kTty, CheckState::kWrong, true, path + ": " + why, "set UartPort to the controller's tty"}};
  }
  const std::string driver = DriverOf(info.st_rdev);
  tty.found += " (driver " + driver + ")";
  const PortHolders holders = HoldersOf(info);
  if (!holders.known.empty()) return InUse(tty, driver, holders.known.front());
  if (!holders.all_seen)
    return {tty, NotTried("another user's process may have the port", "bthal check as root, without --user")};
  std::vector<CheckResult> results = Tried(fd.get(), before);
  results.insert(results.begin(), tty);
  return results;
}

}  // namespace bthal::tool
