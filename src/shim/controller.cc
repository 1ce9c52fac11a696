// The choice of the path, and powering and opening it.
#define LOG_TAG "bthal.shim"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>

#include "chre/usf_helper.h"
#include "conf/conf.h"
#include "conf/properties.h"
#include "debug_central/debug_central.h"
#include "h4/hw_control/hw_control.h"
#include "h4/uart_link.h"
#include "shim/path.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

using ::android::base::GetIntProperty;
using ::android::base::GetProperty;
using ::android::base::SetProperty;
using ::android::base::StringPrintf;
using conf::Config;
using hwcontrol::BtHwControl;

constexpr char kPathOverrideProperty[] = "persist.vendor.bluetooth.uart_path_override";
constexpr char kDefault[] = "default";
constexpr char kSocRevisionProperty[] = "ro.boot.hw.soc.rev";
constexpr int kEarlySocRevision = 0;
constexpr int kFirstSocRevisionAt4M = 2;  // of the sensor-hub path
constexpr auto kPowerOffTime = std::chrono::milliseconds(30);

int SocRevision() { return GetIntProperty(kSocRevisionProperty, kEarlySocRevision); }

// Whether the sensor hub drives the controller's power pin.
bool do_need_aoc_ctrl_bt_power_pin() {
  const Config& config = Config::GetInstance();
  if (!config.DoNeedAocPowerPinCtrlCheck()) return true;
  const auto& exempt = config.hw_stages_not_controlling_power_pin_from_aoc;
  return std::find(exempt.begin(), exempt.end(), conf::HardwareStage()) == exempt.end();
}

void FallBackFromDeadUsf() {
  if (Config::GetInstance().GetUserialType() != conf::kUserialAoc || !UsfHelper::Get().IsUsfTransportDead()) return;
  const std::string text = StringPrintf("%s: %s", "InitializeController", ": USF transport is dead!");
  LOG(WARNING) << text;
  DebugCentral::Get().UpdateRecord(AnchorType::kUsfTransportDead, text);
  EnableBtUartFallback();
  if (Config::GetInstance().apm_uart_skip_suspend) {
    LOG(INFO) << "InitializeController, disable apm uart skip suspend";
    BtHwControl::Get().UartSkipSuspend(false);
  }
}

std::optional<uint32_t> OverriddenPath() {
  const std::string path = GetProperty(kPathOverrideProperty, kDefault);
  if (path == "aoc") {
    LOG(DEBUG) << "Override to use AOC path";
    if (SocRevision() == kEarlySocRevision) LOG(WARNING) << "WARNING: AOC UART is unstable on this SoC revision";
    return conf::kUserialAoc;
  }
  if (path == "apm") {
    LOG(DEBUG) << "Override to use APM path";
    return conf::kUserialApm;
  }
  if (path != kDefault) {
    LOG(WARNING) << "Unexpected setting '" << path << "' for " << kPathOverrideProperty << " - using default";
  }
  return std::nullopt;
}

uint32_t ChoosePath() {
  if (const auto type = OverriddenPath()) return *type;
  const Config& config = Config::GetInstance();
  if (config.DoNeedAocPowerPinCtrlCheck() && SocRevision() == kEarlySocRevision) {
    LOG(DEBUG) << "Use APM path due to HW rev";
    return conf::kUserialApm;
  }
  return config.GetUserialType();
}

bool PowerAndOpenAocWithItsPin() {
  UsfHelper& usf = UsfHelper::Get();
  usf.PowerControl(false, true);
  std::this_thread::sleep_for(kPowerOffTime);
  if (!usf.PowerControl(true, true)) {
    usf.Deinitialize();
    return false;
  }
  if (!usf.UserialOpen(true)) {
    usf.PowerControl(false, true);
    usf.Deinitialize();
    return false;
  }
  return true;
}

// No pause between off and on here: the two switches follow one another.
bool PowerAndOpenAocWithOurPin() {
  UsfHelper& usf = UsfHelper::Get();
  BtHwControl& host = BtHwControl::Get();
  host.PowerControl(false);
  usf.PowerControl(false, false);
  if (!usf.PowerControl(true, false) || !host.PowerControl(true)) {
    usf.Deinitialize();
    return false;
  }
  if (!usf.UserialOpen(true)) {
    host.PowerControl(false);
    usf.PowerControl(false, false);
    usf.Deinitialize();
    return false;
  }
  return true;
}

bool InitializeAocController() {
  if (!UsfHelper::Get().PrepareUsfTransport()) {
    LOG(ERROR) << "InitializeController: PrepareUsfTransport failed";
    return false;
  }
  if (!(do_need_aoc_ctrl_bt_power_pin() ? PowerAndOpenAocWithItsPin() : PowerAndOpenAocWithOurPin())) return false;
  if (Config::GetInstance().apm_uart_skip_suspend) {
    LOG(INFO) << "InitializeController, enable apm uart skip suspend";
    BtHwControl::Get().UartSkipSuspend(true);
  }
  return true;
}

bool InitializeUartController() {
  // Also here, so that a later switch to the sensor hub finds it ready.
  UsfHelper::Get().PrepareUsfTransportAsync();
  UartLink::Get().Detach();
  BtHwControl& host = BtHwControl::Get();
  host.PowerControl(false);
  if (!host.PowerControl(true)) return false;
  if (host.UserialOpen(userial_type_in_force)) return true;
  host.PowerControl(false);
  return false;
}

}  // namespace

bool InitializeController() {
  FallBackFromDeadUsf();
  const uint32_t type = ChoosePath();
  userial_type_in_force = type;
  return type == conf::kUserialAoc ? InitializeAocController() : InitializeUartController();
}

void DeinitializeController() {
  LOG(INFO) << __func__;
  BtHwControl& host = BtHwControl::Get();
  if (IsUartPath()) {
    UartLink::Get().Detach();  // nobody reads or writes a descriptor that is about to be closed
    host.UserialClose();
    host.PowerControl(false);
    return;
  }
  UsfHelper& usf = UsfHelper::Get();
  usf.UserialOpen(false);
  const bool pin = do_need_aoc_ctrl_bt_power_pin();
  if (!pin) host.PowerControl(false);
  usf.PowerControl(false, pin);
  usf.Deinitialize();
}

void Deinitialize() {
  DeinitializeController();
  userial_type_in_force = conf::kUserialDeinitialized;
}

UartBaudRate RequiredBaudRate() {
  const bool fast = !IsUartPath() && SocRevision() < kFirstSocRevisionAt4M;
  return fast ? UartBaudRate::kUartBaudRate6000000 : UartBaudRate::kUartBaudRate4000000;
}

void EnableBtUartFallback() {
  LOG(WARNING) << __func__;
  SetProperty(conf::kDisableAccelerateBtOnProperty, "true");
  SetProperty(conf::kUartFallbackProperty, "true");
}

bool IsBtUartFallback() { return conf::IsBtUartFallback(); }

}  // namespace android::hardware::bluetooth::hci::shim
