#include "bthal/show/known_names.h"

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "bthal/hci/lines/suggestion.h"
#include "conf/conf.h"
#include "conf/conf_line.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::hardware::bluetooth::os::DevicePath;
namespace conf = ::android::hardware::bluetooth::conf;

using enum ValueKind;

constexpr std::string_view kSwitchWords = "true|false|1|0";
constexpr std::string_view kPropertySwitchWords = "true|false|1|0|y|n|yes|no|on|off";

constexpr KnownName kSettings[] = {
    {"FastDownloadDisable", kSwitch, kSwitchWords, 0, 0, "false", "btqnl_protocol",
     "each record of a patch waits for its answer, also where the chip could do without"},
    {"SarBackOffHighResolution", kSwitch, "true|false", 0, 0, "false", "conf", "kept; nothing acts on it"},
    {"BigHammerBtRegOnDelay", kNumber, "milliseconds", 0, 60000, "100", "aidl",
     "how long the controller stays off when the coexistence driver asks for its power cycle"},
    {"UartPort", kPath, "a path below /dev", 0, 0, "/dev/ttySAC16", "h4/hw_control", "the controller's tty"},
    {"UserialType", kNumber, "0: HCI user channel, 1: tty, 2: sensor hub", 0, 2, "1", "shim",
     "the path to the controller"},
    {"AccelBtDisable", kSwitch, kSwitchWords, 0, 0, "false", "aidl",
     "the controller is brought up for a client, not with the service"},
    {"ThreadDispatcherEnabled", kSwitch, kSwitchWords, 0, 0, "false", "thread",
     "serves a Thread client, if persist.bluetooth.thread_dispatcher.enabled says so too"},
    {"AocPowerPinCtrlCheckEnable", kSwitch, kSwitchWords, 0, 0, "false", "shim",
     "the hardware's stage and revision decide who drives the power pin, and by which path"},
    {"HwStageDoesNotCtrlPowerPinFromAoc", kText, "stages, with - between them", 0, 0, "", "shim",
     "the stages on which the sensor hub does not drive the power pin"},
    {"HwStageWithOldChipFwNoLongerSupport", kText, "stages, with - between them", 0, 0, "", "debug_central",
     "the stages on which a fatal error ends the service without a crash dump"},
    {"UserialTypeFallback", kNumber, "as UserialType", 0, 2, "1", "shim",
     "the path while bluetooth.uart.fallback is true"},
    {"MaxUsfRecoveryTimeInSeconds", kNumber, "seconds", 0, INT32_MAX, "15", "chre",
     "how long the sensor hub's connection is waited for; a lost one that takes longer is dead"},
    {"MinUsfDisconnectionIntervalInSeconds", kNumber, "seconds", 0, INT32_MAX, "3600", "chre",
     "the sensor hub's connection lost again within this time is dead"},
    {"ApmUartSkipSuspend", kSwitch, kSwitchWords, 0, 0, "false", "shim",
     "the tty's driver keeps the port on while the machine sleeps, as long as the sensor hub has the controller"},
    {"BqrEnergyReportLogging", kSwitch, kSwitchWords, 0, 0, "false", "bluetooth_bqr",
     "quality reports of the kind energy are logged to a file"},
    {"BtA2dpOffloadCap", kText, "any", 0, 0, "", "conf", "sets persist.bluetooth.a2dp_offload.cap"},
    {"BtOpusEnabled", kText, "any", 0, 0, "", "conf", "sets persist.bluetooth.opus.enabled"},
    {"POFEnable", kText, "any", 0, 0, "", "conf", "sets persist.bluetooth.finder.enable"},
    {"BqrEventMaskValueUpdate", kText, "any", 0, 0, "", "conf",
     "sets persist.bluetooth.bqr.event_mask, on a userdebug or eng build"},
};

constexpr KnownName kProperties[] = {
    {"bluetooth.uart.fallback", kSwitch, kPropertySwitchWords, 0, 0, "false", "conf",
     "UserialTypeFallback holds instead of UserialType; set by the service when the sensor hub is dead"},
    {"bluetooth.usf.dead", kSwitch, kPropertySwitchWords, 0, 0, "false", "chre",
     "the sensor hub's connection is not worth another try until the next boot; set by the service"},
    {"bluetooth.usf.last.loss", kNumber, "seconds since the boot", -1, INT64_MAX, "-1", "chre",
     "when the sensor hub's connection was lost last; set by the service"},
    {"persist.bluetooth.a2dp_offload.cap", kText, "any", 0, 0, "", "none; written by conf", "for the host stack"},
    {"persist.bluetooth.bqr.event_mask", kText, "a number", 0, 0, "", "conf", "for the host stack"},
    {"persist.bluetooth.btsnooplogmode", kWord, "disabled|filtered|full|...", 0, 0,
     "filtered on a userdebug or eng build, else disabled", "vnd_snoop_logger, shim",
     "disabled: no packet log; full: the controller's own log too"},
    {"persist.bluetooth.disable.accelerate.bt.on", kWord, "false|true", 0, 0, "false", "conf",
     "anything but false: the controller is brought up for a client, not with the service"},
    {"persist.bluetooth.finder.enable", kText, "any", 0, 0, "", "none; written by conf", "for the host stack"},
    {"persist.bluetooth.firmware.download", kText, "a file's name", 0, 0, "", "none; written by btqnl_protocol",
     "the patch that was used last"},
    {"persist.bluetooth.firmware.selection", kWord, "QNL.hcd|BTFW_B.hcd|BTFW_D.hcd", 0, 0, "QNL.hcd", "btqnl_protocol",
     "the patch that is looked for first"},
    {"persist.bluetooth.opus.enabled", kText, "any", 0, 0, "", "none; written by conf", "for the host stack"},
    {"persist.bluetooth.otp.status", kWord, "Written|Empty", 0, 0, "", "btqnl_protocol",
     "whether the chip's one-time memory is written; asked of the chip unless Written"},
    {"persist.bluetooth.thread_dispatcher.enabled", kSwitch, kPropertySwitchWords, 0, 0, "false", "conf",
     "serves a Thread client, if ThreadDispatcherEnabled says so too"},
    {"persist.bluetooth.vendor.btsnoop", kSwitch, kPropertySwitchWords, 0, 0, "false", "vnd_snoop_logger",
     "writes the packet log, from the next session on"},
    {"persist.bluetooth.vendor.btsnoopsize", kNumber, "packets", 0, INT64_MAX, "65535", "vnd_snoop_logger",
     "packets until the log is rotated"},
    {"persist.vendor.bluetooth.uart_path_override", kWord, "default|aoc|apm", 0, 0, "default", "shim",
     "the path to the controller whatever the settings say: sensor hub, or tty"},
    {"ro.boot.hardware.revision", kText, "a stage's name", 0, 0, "default", "conf", "the hardware's stage"},
    {"ro.boot.hw.soc.rev", kNumber, "a number", 0, INT32_MAX, "0", "shim",
     "below 2 the sensor hub's path has 6 Mbit/s; at 0 AocPowerPinCtrlCheckEnable chooses the tty"},
    {"ro.build.type", kWord, "user|userdebug|eng", 0, 0, "", "conf",
     "userdebug, eng: the packet log needs no log mode, the quality mask may be set"},
    {"ro.vendor.bluetooth.evb_bdaddr", kText, "AA:BB:CC:DD:EE:FF", 0, 0, "", "btqnl_protocol",
     "the address, where the device tree has none"},
    {"sys.shutdown.requested", kText, "any", 0, 0, "", "aidl", "while it is set, a client's death starts nothing anew"},
};

std::string Values(const KnownName& known) {
  const std::string values = ::android::base::StringReplace(known.values, "|", ", ", /*all=*/true);
  return known.kind == kNumber && known.least == 0 && known.most < INT32_MAX
             ? StringPrintf("%lld to %lld (%s)", static_cast<long long>(known.least),
                            static_cast<long long>(known.most), values.c_str())
             : values;
}

bool Fits(const KnownName& known, const std::string& value) {
  const std::vector<std::string> words = ::android::base::Split(std::string(known.values), "|");
  int64_t number = 0;
  switch (known.kind) {
    case kSwitch:
    case kWord:
      return std::ranges::find(words, value) != words.end();
    case kNumber:
      return ::android::base::ParseInt(value, &number, known.least, known.most);
    case kPath:
      return value.starts_with("/dev/");
    case kText:
      return true;
  }
  return true;
}

std::string ProblemOf(const std::string& line) {
  const std::optional<conf::ConfigPair> pair = conf::ParseLine(line);
  const bool comment = line.starts_with('#') || ::android::base::Trim(line).empty();
  if (!pair) return comment ? "" : "'" + ::android::base::Trim(line) + "' has no value; write name = value";
  const auto* known = std::ranges::find(kSettings, pair->name, &KnownName::name);
  if (known != std::end(kSettings)) {
    if (Fits(*known, pair->value)) return "";
    return pair->name + " cannot be '" + pair->value + "'; it takes " + Values(*known);
  }
  std::vector<std::string> names;
  for (const KnownName& setting : kSettings) names.emplace_back(setting.name);
  const std::string meant = Closest(pair->name, names);
  return "there is no setting '" + pair->name + "'" +
         (meant.empty() ? "; bthal conf --explain shows all" : "; did you mean '" + meant + "'?");
}

}  // namespace

std::span<const KnownName> KnownSettings() { return kSettings; }
std::span<const KnownName> KnownProperties() { return kProperties; }

std::string Explained(std::span<const KnownName> names) {
  std::string text;
  for (const KnownName& known : names) {
    text += StringPrintf("  %s = %s", std::string(known.name).c_str(), Values(known).c_str());
    if (!known.fallback.empty()) text += StringPrintf("; default %s", std::string(known.fallback).c_str());
    text += StringPrintf("\n      %s (%s)\n", std::string(known.effect).c_str(), std::string(known.reader).c_str());
  }
  return text;
}

std::vector<std::string> SettingsProblems() {
  std::vector<std::string> problems;
  for (const char* path : {conf::kVendorConfPath, conf::kVendorOverlayConfPath}) {
    std::string content;
    struct stat info = {};
    if (stat(DevicePath(path).c_str(), &info) != 0 || !S_ISREG(info.st_mode)) continue;
    if (!::android::base::ReadFileToString(DevicePath(path), &content, /*follow_symlinks=*/true)) continue;
    int number = 0;
    for (const std::string& line : ::android::base::Split(content, "\n")) {
      ++number;
      const std::string problem = ProblemOf(line);
      if (!problem.empty()) problems.push_back(StringPrintf("%s, line %d: %s", path, number, problem.c_str()));
    }
  }
  return problems;
}

}  // namespace bthal::tool
