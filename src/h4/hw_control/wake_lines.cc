// The kernel's low-power-mode driver: one node switches it, another drives the controller's wake line.
#define LOG_TAG "bthal.hwcontrol"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "debug_central/debug_central.h"
#include "h4/hw_control/hw_control.h"
#include "h4/hw_control/node.h"

namespace android::hardware::bluetooth::hwcontrol {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr char kLpmNode[] = "/proc/bluetooth/sleep/lpm";
constexpr char kLpmOn = '1';
constexpr char kLpmOff = '0';
constexpr char kBtWriteNode[] = "/proc/bluetooth/sleep/btwrite";
constexpr char kWakeAsserted = '1';
constexpr char kWakeDeasserted = '0';
constexpr auto kWakeUpTime = std::chrono::milliseconds(10);

void Record(AnchorType type, const std::string& text) { DebugCentral::Get().UpdateRecord(type, text); }

}  // namespace

bool BtHwControl::LpmSetup() {
  LOG(INFO) << __func__ << ": LPM enabling";
  Record(AnchorType::kLpmEnabling, StringPrintf("%s: LPM enabling", __func__));
  unique_fd control = OpenNode(kBtWriteNode);
  if (!control.ok()) {
    const int error = errno;
    LOG(WARNING) << StringPrintf("%s: Unable to open LPM control port (%s): %s (%d)", __func__, kBtWriteNode,
                                 strerror(error), error);
    Record(AnchorType::kLpmSetupFailed,
           StringPrintf("%s: Unable to open LPM control port, %s (%d)", __func__, strerror(error), error));
    return false;
  }
  unique_fd driver = OpenNode(kLpmNode);
  if (!driver.ok()) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: Unable to open LPM driver (%s): %s (%d)", __func__, kLpmNode, strerror(error),
                               error);
    Record(AnchorType::kLpmSetupFailed,
           StringPrintf("%s: Unable to open LPM driver, %s (%d)", __func__, strerror(error), error));
    return false;
  }
  const int control_fd = control.get();
  const unique_fd replaced(lpm_fd_.exchange(control.release()));
  if (WriteNode(driver.get(), kLpmOn) <= 0) {
    LOG(ERROR) << StringPrintf("%s: Unable to enable LPM driver (%s): %s (%d)", __func__, kLpmNode, strerror(errno),
                               errno);
    LpmTeardown();
    return false;
  }
  driver.reset();
  if (WriteNode(control_fd, kWakeAsserted) <= 0) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: Unable to wake up LPM:%s (%d)", __func__, strerror(error), error);
    Record(AnchorType::kLpmSetupFailed,
           StringPrintf("%s: Unable to wake up LPM: %s (%d)", __func__, strerror(error), error));
    LpmTeardown();
    return false;
  }
  return true;
}

void BtHwControl::LpmTeardown() {
  LOG(INFO) << __func__ << ": LPM disabling";
  Record(AnchorType::kLpmDisabling, StringPrintf("%s: LPM disabling", __func__));
  unique_fd(lpm_fd_.exchange(-1)).reset();
  const unique_fd driver = OpenNode(kLpmNode);
  if (!driver.ok()) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: Unable to close LPM driver (%s): %s (%d)", __func__, kLpmNode, strerror(error),
                               error);
    Record(AnchorType::kLpmDisableFailed,
           StringPrintf("%s: Unable to close LPM driver, %s (%d)", __func__, strerror(error), error));
    return;
  }
  if (WriteNode(driver.get(), kLpmOff) <= 0) {
    LOG(ERROR) << StringPrintf("%s: Unable to disable LPM driver (%s): %s (%d)", __func__, kLpmNode, strerror(errno),
                               errno);
  }
  LOG(DEBUG) << __func__ << ": LPM Disabled";
}

bool BtHwControl::LpmSuspend() {
  const int fd = lpm_fd_;
  if (fd < 0) return true;
  if (WriteNode(fd, kWakeDeasserted) <= 0) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: Unable to suspend LPM:%s (%d)", __func__, strerror(error), error);
    Record(AnchorType::kWakeLineFailed,
           StringPrintf("%s: Unable to suspend LPM, %s (%d)", __func__, strerror(error), error));
    return false;
  }
  Record(AnchorType::kWakeLineDeassert, StringPrintf("%s: Deassert", __func__));
  return true;
}

bool BtHwControl::LpmWakeUp() {
  const int fd = lpm_fd_;
  if (fd < 0) return true;
  if (WriteNode(fd, kWakeAsserted) <= 0) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: Unable to wake up LPM:%s (%d)", __func__, strerror(error), error);
    Record(AnchorType::kWakeLineFailed,
           StringPrintf("%s: Unable to wake up LPM, %s (%d)", __func__, strerror(error), error));
    return false;
  }
  std::this_thread::sleep_for(kWakeUpTime);  // the controller must be awake before the caller sends
  Record(AnchorType::kWakeLineAssert, StringPrintf("%s: Assert", __func__));
  return true;
}

}  // namespace android::hardware::bluetooth::hwcontrol
