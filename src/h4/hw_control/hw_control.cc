#define LOG_TAG "bthal.hwcontrol"

#include "h4/hw_control/hw_control.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "coex_device/coex_device.h"
#include "debug_central/debug_central.h"
#include "h4/hw_control/node.h"
#include "os/device_path.h"
#include "os/file_utils.h"

namespace android::hardware::bluetooth::hwcontrol {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr char kRfkillFolder[] = "/sys/class/rfkill/rfkill";
constexpr char kRfkillBluetooth[] = "bluetooth";
constexpr size_t kRfkillTypeSize = 16;  // with the terminating zero
constexpr size_t kRfkillNameSize = 64;
constexpr char kPowerOn = '1';
constexpr char kPowerOff = '0';

constexpr char kUartCtrlNode[] = "/sys/devices/platform/155d0000.serial/uart_dbg";
constexpr char kSkipSuspend = '8';
constexpr char kDoNotSkipSuspend = '9';

constexpr char kBatteryNode[] = "/sys/class/power_supply/battery/capacity";
constexpr mode_t kBatteryNodeMode = 040;
constexpr size_t kBatteryTextSize = 3;  // "100"

constexpr size_t kDumpRulerSize = 45;
constexpr size_t kMostOfANode = size_t{4} << 20;

// Which of a machine's radios a number stands for is told by its name alone.
void LogRfkillName(const std::string& entry) {
  const unique_fd fd = os::OpenRegularFile(entry + "/name", O_RDONLY);
  char name[kRfkillNameSize];
  const ssize_t length = TEMP_FAILURE_RETRY(read(fd.get(), name, sizeof(name)));
  if (length <= 0) return;
  std::string_view text(name, static_cast<size_t>(length));
  text = text.substr(0, text.find('\n'));
  LOG(INFO) << "rfkill_state_finder: " << entry << " is [" << text << "]";
}

// The state file of the first rfkill entry of type "bluetooth"; empty without one. Entries are numbered without a gap,
// so the first missing one ends the search.
std::string rfkill_state_finder() {
  for (int index = 0;; ++index) {
    const std::string entry = kRfkillFolder + std::to_string(index);
    const std::string type_path = entry + "/type";
    const unique_fd fd(TEMP_FAILURE_RETRY(open(os::DevicePath(type_path).c_str(), O_RDONLY | O_CLOEXEC)));
    if (!fd.ok()) {
      LOG(ERROR) << StringPrintf("%s: Open(%s): %s (%d)", __func__, type_path.c_str(), strerror(errno), errno);
      return {};
    }
    char type[kRfkillTypeSize] = {};
    const ssize_t length = TEMP_FAILURE_RETRY(read(fd.get(), type, sizeof(type) - 1));
    if (length <= 0) continue;
    if (type[length - 1] == '\n') type[length - 1] = '\0';
    LOG(DEBUG) << __func__ << ": rfkill candidate " << type_path << " is [" << type << "]";
    if (strcmp(type, kRfkillBluetooth) == 0) {
      std::string state_path = entry + "/state";
      LOG(INFO) << __func__ << ": Use rfkill " << state_path << ".";
      LogRfkillName(entry);
      return state_path;
    }
  }
}

}  // namespace

BtHwControl& BtHwControl::Get() {
  static constinit BtHwControl control;
  return control;
}

bool BtHwControl::PowerControl(bool enable) {
  const DebugAnchor anchor(AnchorType::kPowerControl, __func__);
  const std::string state_path = rfkill_state_finder();
  if (state_path.empty()) {
    LOG(INFO) << __func__ << ": Power sequence is not controlled by Bluetooth HAL";
    return true;
  }
  unique_fd fd = OpenNode(state_path.c_str());
  if (!fd.ok()) {
    LOG(ERROR) << StringPrintf("%s: Unable to open rfkill state {%s}: %s (%d)", __func__, state_path.c_str(),
                               strerror(errno), errno);
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostPowerUpController, "Unable to open rfkill state");
    return false;
  }
  const char* step = enable ? "Enabling" : "Disabling";
  LOG(INFO) << __func__ << ": " << step;
  DebugCentral::Get().UpdateRecord(AnchorType::kRfkillState,
                                   StringPrintf("%s: %s, state_path: %s", __func__, step, state_path.c_str()));
  BtRegOnCoordinate(enable, /*after=*/false);
  ssize_t written = 0;
  do {
    written = WriteNode(fd.get(), enable ? kPowerOn : kPowerOff);
    if (written < 0)
      LOG(ERROR) << StringPrintf("%s: Failed to change rfkill state: %s (%d)", __func__, strerror(errno), errno);
  } while (written < 0 && errno == EAGAIN);
  fd.reset();
  BtRegOnCoordinate(enable, /*after=*/true);
  if (written <= 0) {
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostPowerUpController, "Cannot write power control data");
    return false;
  }
  return true;
}

bool BtHwControl::BtRegOnCoordinate(bool enabling, bool after) {
  using coex_device::CoexDevice;
  LOG(INFO) << StringPrintf("%s: enabling=%d, after=%d", __func__, enabling, after);
  const int before_code = enabling ? coex_device::kCoexPowerComingOn : coex_device::kCoexPowerGoingOff;
  const int after_code = enabling ? coex_device::kCoexPowerIsOn : coex_device::kCoexPowerIsOff;
  return CoexDevice::BtSend(&CoexDevice::Get(), after ? after_code : before_code);
}

bool BtHwControl::UartSkipSuspend(bool enable) {
  LOG(INFO) << __func__ << ": open UartCtrl device node";
  // Left open on purpose: the node is written once a controller start, and what the driver ties to an open node shall
  // last as long as the service.
  const int fd = OpenNode(kUartCtrlNode).release();
  if (fd < 0) {
    LOG(WARNING) << StringPrintf("%s: Unable to open UartCtrl port (%s): %s (%d)", __func__, kUartCtrlNode,
                                 strerror(errno), errno);
    return false;
  }
  if (WriteNode(fd, enable ? kSkipSuspend : kDoNotSkipSuspend) <= 0) {
    LOG(ERROR) << StringPrintf("%s: Unable to set uart IOCTRL:%s (%d)", __func__, strerror(errno), errno);
    return false;
  }
  LOG(INFO) << __func__ << ": " << (enable ? "enable" : "disable") << " UART skip suspend";
  return true;
}

bool BtHwControl::GetBatteryPercentage(std::string& out) {
  // Creating a node that is missing is odd but wanted: it then reads as empty and not as an error each time.
  const unique_fd fd(
      TEMP_FAILURE_RETRY(open(os::DevicePath(kBatteryNode).c_str(), O_RDONLY | O_CREAT, kBatteryNodeMode)));
  if (!fd.ok()) {
    LOG(ERROR) << StringPrintf("%s: Unable to open Bttery Percentage device node (%s): %s (%d)", __func__, kBatteryNode,
                               strerror(errno), errno);
    return false;
  }
  char text[kBatteryTextSize];
  const ssize_t length = TEMP_FAILURE_RETRY(read(fd.get(), text, sizeof(text)));
  if (length < 1) return false;
  out.assign(text, static_cast<size_t>(length));
  if (out.back() == '\n') out.pop_back();
  return true;
}

void BtHwControl::GetFsDebugDump(int fd, const std::string& path) {
  const std::string ruler(kDumpRulerSize, '=');
  std::string content;
  // A dying service takes this dump, so a node with nothing to say must not hold it up.
  const unique_fd node(TEMP_FAILURE_RETRY(open(os::DevicePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
  if (!node.ok()) {
    content = "Fail to read debugfs: " + path;
  } else {
    bool cut = false;
    content = os::ReadAtMost(node.get(), kMostOfANode, &cut);
    if (cut) {
      LOG(WARNING) << __func__ << ": " << path << " has more than " << kMostOfANode << " bytes, the rest is left out";
    }
  }
  const std::string text = ruler + "\nDebugfs:" + path + "\n" + ruler + "\n" + content + "\n\n";
  if (!::android::base::WriteFully(fd, text.data(), text.size())) {
    LOG(ERROR) << StringPrintf("%s: Unable to write the dump of %s: %s (%d)", __func__, path.c_str(), strerror(errno),
                               errno);
  }
}

}  // namespace android::hardware::bluetooth::hwcontrol
