#define LOG_TAG "bthal.config"

#include "conf/conf.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string_view>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "conf/conf_line.h"
#include "conf/properties.h"
#include "conf/userial_type.h"
#include "os/device_path.h"
#include "os/file_utils.h"

namespace android::hardware::bluetooth::conf {
namespace {

using ::android::base::StringPrintf;

using ::android::base::GetBoolProperty;
using ::android::base::GetProperty;

constexpr size_t kMaxFileSize = size_t{1} << 20;
constexpr size_t kMaxLineSize = 255;
constexpr char kStageDelimiter = '-';

constexpr char kBuildTypeProperty[] = "ro.build.type";
constexpr char kThreadDispatcherProperty[] = "persist.bluetooth.thread_dispatcher.enabled";
constexpr char kA2dpOffloadCapProperty[] = "persist.bluetooth.a2dp_offload.cap";
constexpr char kOpusEnabledProperty[] = "persist.bluetooth.opus.enabled";
constexpr char kFinderEnableProperty[] = "persist.bluetooth.finder.enable";
constexpr char kBqrEventMaskProperty[] = "persist.bluetooth.bqr.event_mask";

// The leading decimal number, 0 when there is none; beyond 32 bits, the nearest that fits.
int32_t ParseLeadingInt(const std::string& value) {
  const long long number = std::strtoll(value.c_str(), nullptr, 10);
  return static_cast<int32_t>(
      std::clamp<long long>(number, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

// With its end, as far as its first zero. A longer line comes in pieces, and each piece counts as a line.
std::string_view NextLine(std::string_view* rest) {
  const std::string_view line = rest->substr(0, std::min(rest->find('\n'), kMaxLineSize - 1) + 1);
  rest->remove_prefix(line.size());
  return line.substr(0, line.find('\0'));
}

bool ParseBool(const std::string& value) { return ParseLeadingInt(value) == 1 || value == "true"; }

std::string ShowBool(bool value) { return value ? "true" : "false"; }

// A key that is kept here: how a text sets the member, and how the member reads as a text.
struct MemberKey {
  const char* name;
  void (*store)(Config& config, const std::string& value);
  std::string (*show)(const Config& config);
};

template <bool Config::*kMember>
constexpr MemberKey BoolKey(const char* name) {
  return {name, [](Config& config, const std::string& value) { config.*kMember = ParseBool(value); },
          [](const Config& config) { return ShowBool(config.*kMember); }};
}

template <auto kMember>
constexpr MemberKey NumberKey(const char* name) {
  return {name,
          [](Config& config, const std::string& value) {
            config.*kMember = static_cast<std::remove_reference_t<decltype(config.*kMember)>>(ParseLeadingInt(value));
          },
          [](const Config& config) { return std::to_string(config.*kMember); }};
}

template <std::vector<std::string> Config::*kMember>
constexpr MemberKey StagesKey(const char* name) {
  return {name,
          [](Config& config, const std::string& value) { config.*kMember = Config::Split(value, kStageDelimiter); },
          [](const Config& config) { return ::android::base::Join(config.*kMember, kStageDelimiter); }};
}

constexpr MemberKey kMemberKeys[] = {
    BoolKey<&Config::fast_download_disabled>("FastDownloadDisable"),
    // "1" does not set this one, unlike the other switches. Kept: a file that says so must go on meaning the same.
    {"SarBackOffHighResolution",
     [](Config& config, const std::string& value) { config.sar_back_off_high_resolution = value == "true"; },
     [](const Config& config) { return ShowBool(config.sar_back_off_high_resolution); }},
    NumberKey<&Config::big_hammer_bt_reg_on_delay_ms>("BigHammerBtRegOnDelay"),
    {"UartPort", [](Config& config, const std::string& value) { config.uart_port = value; },
     [](const Config& config) { return config.uart_port; }},
    NumberKey<&Config::userial_type>("UserialType"),
    BoolKey<&Config::accel_bt_disabled>("AccelBtDisable"),
    BoolKey<&Config::thread_dispatcher_enabled>("ThreadDispatcherEnabled"),
    BoolKey<&Config::aoc_power_pin_ctrl_check_enabled>("AocPowerPinCtrlCheckEnable"),
    StagesKey<&Config::hw_stages_not_controlling_power_pin_from_aoc>("HwStageDoesNotCtrlPowerPinFromAoc"),
    StagesKey<&Config::hw_stages_with_old_chip_fw_no_longer_supported>("HwStageWithOldChipFwNoLongerSupport"),
    NumberKey<&Config::userial_type_fallback>("UserialTypeFallback"),
    NumberKey<&Config::max_usf_recovery_time_s>("MaxUsfRecoveryTimeInSeconds"),
    NumberKey<&Config::min_usf_disconnection_interval_s>("MinUsfDisconnectionIntervalInSeconds"),
    BoolKey<&Config::apm_uart_skip_suspend>("ApmUartSkipSuspend"),
    BoolKey<&Config::bqr_energy_report_logging>("BqrEnergyReportLogging"),
};

// A key that is not kept but copied into a system property for other processes.
struct PropertyKey {
  const char* name;
  const char* property;
};

constexpr PropertyKey kPropertyKeys[] = {
    {"BtA2dpOffloadCap", kA2dpOffloadCapProperty},
    {"BtOpusEnabled", kOpusEnabledProperty},
    {"POFEnable", kFinderEnableProperty},
    {"BqrEventMaskValueUpdate", kBqrEventMaskProperty},
};

}  // namespace

Config& Config::GetInstance() {
  static auto& config = *new Config(Properties::kSet);
  return config;
}

Config Config::Preview() { return Config(Properties::kLeaveAlone); }

Config::Config(Properties properties) : properties_(properties) {
  const std::string build_type = GetProperty(kBuildTypeProperty, "");
  LOG(INFO) << "is_user_debug_or_eng_build: build_type : " << build_type;
  is_user_debug_or_eng_build = build_type == "userdebug" || build_type == "eng";
  LoadConfig(kVendorConfPath);
  LoadConfig(kVendorOverlayConfPath);
}

void Config::LoadConfig(const std::string& path) {
  LOG(INFO) << "Attempt to load conf from " << path;
  // Without O_NONBLOCK a FIFO in the file's place would hold up the start for ever.
  const ::android::base::unique_fd file(
      TEMP_FAILURE_RETRY(open(os::DevicePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
  if (!file.ok()) {
    LOG(INFO) << "config file >" << path << "< not found";
    return;
  }
  loading_path_ = path;
  // What is no configuration, and perhaps has no end, does not hold up the start either.
  bool cut = false;
  const std::string text = os::ReadAtMost(file.get(), kMaxFileSize, &cut);
  if (cut)
    LOG(ERROR) << path << " has more than " << kMaxFileSize << " bytes, the rest is not read: is it the right file?";
  for (std::string_view rest(text); !rest.empty();) {
    const std::string_view line = NextLine(&rest);
    if (const auto pair = ParseLine(line)) StoreConfigValue(pair->name, pair->value);
  }
}

void Config::StoreConfigValue(const std::string& name, const std::string& value) {
  for (const MemberKey& key : kMemberKeys) {
    if (name != key.name) continue;
    key.store(*this, value);
    sources_[name] = loading_path_;
    return;
  }
  for (const PropertyKey& key : kPropertyKeys) {
    if (name != key.name) continue;
    SetPropertyFromFile(key.property, value);
    sources_[name] = loading_path_;
    return;
  }
}

void Config::SetPropertyFromFile(const char* property, const std::string& value) const {
  if (properties_ == Properties::kLeaveAlone) return;
  if (std::string_view(property) == kBqrEventMaskProperty) {
    UpdateBqrEventMask(value);
    return;
  }
  LOG(INFO) << "StoreConfigValue: set " << property << ": " << value;
  if (!::android::base::SetProperty(property, value)) {
    LOG(WARNING) << "StoreConfigValue: the system does not take the value of " << property;
  }
}

// Developers change the mask by hand on their builds, and a new default from the file must still reach them; on a user
// build the property stays whatever it is.
void Config::UpdateBqrEventMask(const std::string& value) const {
  const std::string current = GetProperty(kBqrEventMaskProperty, "false");
  if (current == value || !is_user_debug_or_eng_build) return;
  LOG(INFO) << "StoreConfigValue: bqr.event_mask: " << current << " is not default value!";
  LOG(INFO) << "StoreConfigValue: set to default bqr.event_mask: " << value;
  if (!::android::base::SetProperty(kBqrEventMaskProperty, value)) {
    LOG(WARNING) << "StoreConfigValue: the system does not take the value of " << kBqrEventMaskProperty;
  }
}

std::vector<std::string> Config::Split(const std::string& value, char delimiter) {
  return ::android::base::Split(value, std::string(1, delimiter));
}

bool Config::IsAcceleratedBtOnSupported() const {
  const std::string disabled = GetProperty(kDisableAccelerateBtOnProperty, "false");
  LOG(INFO) << __func__ << ": accel_bt_on_disable_prop: " << disabled;
  return disabled == "false" && !accel_bt_disabled;
}

bool Config::IsThreadDispatcherEnabled() const {
  const bool enabled = GetBoolProperty(kThreadDispatcherProperty, false);
  LOG(INFO) << StringPrintf("%s: is_thread_dispatcher_enabled_prop: %d", __func__, enabled);
  return enabled && thread_dispatcher_enabled;
}

uint32_t Config::GetUserialType() const {
  if (IsBtUartFallback() && userial_type_fallback < kUserialDeinitialized) {
    LOG(INFO) << StringPrintf("%s: BT UART fallback to %d", __func__, static_cast<int>(userial_type_fallback));
    return userial_type_fallback;
  }
  return userial_type;
}

std::vector<ConfigSetting> Config::Settings() const {
  std::vector<ConfigSetting> settings;
  const auto source = [this](const char* key) {
    const auto found = sources_.find(key);
    return found == sources_.end() ? std::string("default") : found->second;
  };
  for (const MemberKey& key : kMemberKeys) settings.push_back({key.name, key.show(*this), source(key.name)});
  for (const PropertyKey& key : kPropertyKeys) {
    settings.push_back({key.name, GetProperty(key.property, ""), source(key.name)});
  }
  return settings;
}

}  // namespace android::hardware::bluetooth::conf
