#define LOG_TAG "bthal.debug_central"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "debug_central/catalogue.h"
#include "debug_central/debug_central.h"
#include "debug_central/files.h"
#include "os/error_text.h"
#include "os/file_utils.h"
#include "os/log_throttle.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;
using hci::HciPacket;

// Hardware Error event:
//   0x10 | length 1 | hardware code
constexpr size_t kHardwareCodeOffset = 2;

// Vendor event:
//   0xFF | length | sub-event | ...
constexpr size_t kVendorHeaderSize = 2;
constexpr size_t kSubEventOffset = 2;
constexpr uint8_t kSubEventHiddenFirst = 0x1B;   // the controller's own business with its host
constexpr uint8_t kSubEventHiddenSecond = 0x6A;  // likewise
constexpr uint8_t kSubEventDebugInfo = 0x57;
constexpr uint8_t kSubEventQualityReport = 0x58;

// Quality report:
//   0xFF | length | 0x58 | report id | ...
constexpr size_t kReportIdOffset = 3;
constexpr size_t kQualityReportHeaderSize = 4;

enum ReportId : uint8_t {
  kMonitoring = 1,
  kApproachLinkSupervisionTimeout = 2,
  kA2dpChoppy = 3,
  kScoVoiceChoppy = 4,
  kRootInflammation = 5,
  kEnergyMonitor = 6,
  kConnectFail = 7,
  kVendorQuality = 16,
  kFirmwareDump = 19,
  kChreDump = 20,
  kVendorTrace = 32,
};

// Root inflammation:
//   0xFF | length | 0x58 | 5 | error code | vendor error
constexpr size_t kErrorCodeOffset = 4;
constexpr size_t kVendorErrorOffset = 5;
constexpr size_t kRootInflammationSize = 6;

// A piece of a dump, as debug information or as quality report:
//   0xFF | length | 0x57 or 0x58 | report id | ... | last (at 5) | ...
constexpr size_t kLastFragmentOffset = 5;
constexpr size_t kDebugInfoMinSize = 9;
constexpr size_t kFragmentMinSize = 4;

constexpr int kFragmentFlags = O_WRONLY | O_CREAT | O_APPEND | O_SYNC;
constexpr mode_t kFragmentMode = 0640;

bool IsLastFragment(const HciPacket& event) {
  return event.size() > kLastFragmentOffset && event[kLastFragmentOffset] != 0;
}

// What is said of a fragments' file, one object a line: on a full disk, or without one, every fragment would say it.
struct Complaints {
  os::LogThrottle not_opened;
  os::LogThrottle no_permissions;
  os::LogThrottle cut;
  os::LogThrottle unsaved;
};

template <typename Text>
void Complain(os::LogThrottle& throttle, const Text& text) {
  throttle.Log(LOG_TAG, ::android::base::ERROR, text);
}

// Opens a fragments' file for appending; `kind` is what complaints call it.
unique_fd OpenFragmentFile(const char* function, const std::string& path, const char* kind, Complaints& complaints) {
  unique_fd fd = os::OpenRegularFile(path, kFragmentFlags, kFragmentMode);
  if (!fd.ok()) {
    const int error = errno;
    Complain(complaints.not_opened, [&] {
      return StringPrintf("%s: Failed to open %s file: %s, failed: %s (%d)\n", function, kind, path.c_str(),
                          strerror(error), error);
    });
  } else if (fchmod(fd.get(), kFragmentMode) != 0) {
    Complain(complaints.no_permissions,
             [&] { return StringPrintf("%s: unable to change file permissions %s", function, path.c_str()); });
  }
  return fd;
}

// Writes as much as the file takes; interruptions and short writes are gone over. Returns the bytes written, and leaves
// errno where that is not all.
size_t WriteAll(int fd, const HciPacket& event) {
  size_t done = 0;
  while (done < event.size()) {
    const ssize_t n = TEMP_FAILURE_RETRY(write(fd, event.data() + done, event.size() - done));
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  return done;
}

}  // namespace

void DebugCentral::HandleHardwareError(const HciPacket& event) {
  LOG(ERROR) << "Received Hardware error event!";
  UpdateRecord(AnchorType::kHardwareErrorEvent, StringPrintf("%s: Received Hardware error event!", "operator()"));
  if (event.size() > kHardwareCodeOffset) LOG(ERROR) << StringPrintf("Error code=%02X", event[kHardwareCodeOffset]);
  // The first reset of a bring-up may well meet a controller in disorder: that is no crash to tell of.
  start_crash_dump(hooks_.is_first_reset && hooks_.is_first_reset(), kReasonHardwareError);
}

bool DebugCentral::HandleVendorEvent(const HciPacket& event) {
  if (event.size() < kVendorHeaderSize) {
    LOG(ERROR) << __func__ << ": Invalid length of VS event!";
    return false;
  }
  if (event.size() <= kSubEventOffset) return false;  // a vendor event that says nothing
  switch (event[kSubEventOffset]) {
    case kSubEventHiddenFirst:
    case kSubEventHiddenSecond:
      return true;
    case kSubEventDebugInfo:
      LOG(INFO) << __func__ << ": Received Debug Info event!";
      HandleDebugInfoEvent(event);
      return true;
    case kSubEventQualityReport:
      return HandleQualityReport(event);
    default:
      return false;
  }
}

bool DebugCentral::HandleQualityReport(const HciPacket& event) {
  if (event.size() < kQualityReportHeaderSize) {
    LOG(ERROR) << __func__ << ": Invalid length of BQR event!";
    return false;
  }
  switch (event[kReportIdOffset]) {
    case kMonitoring:
    case kApproachLinkSupervisionTimeout:
    case kA2dpChoppy:
    case kScoVoiceChoppy:
    case kConnectFail:
    case kVendorQuality:
    case kVendorTrace:
      if (hooks_.quality_report) hooks_.quality_report(event);
      return false;
    case kRootInflammation:
      return HandleRootInflammation(event);
    case kEnergyMonitor:
      if (hooks_.energy_report) hooks_.energy_report(event);
      return true;
    case kFirmwareDump:
      HandleFirmwareDumpFragment(event);
      return true;
    case kChreDump:
      HandleChreDumpFragment(event);
      return true;
    default:
      return false;
  }
}

bool DebugCentral::HandleRootInflammation(const HciPacket& event) {
  if (event.size() < kRootInflammationSize) {
    LOG(ERROR) << __func__ << ": Invalid length of BQR event!";
    return false;
  }
  const uint8_t error_code = event[kErrorCodeOffset];
  const uint8_t vendor_error = event[kVendorErrorOffset];
  LOG(ERROR) << StringPrintf("%s: Received Root Inflammation event! (0x%02hhX%02hhX)", __func__, error_code,
                             vendor_error);
  if (IsQuietError(vendor_error) || hw_stage_firmware_no_longer_supported() || !has_client_) return true;
  std::string reason = std::string(kReasonRootInflammation) + ": " +
                       StringPrintf("error_code: 0x%02hhX, vendor_error: 0x%02hhX", error_code, vendor_error);
  const std::string text = ReasonText(static_cast<BqrErrorCode>(vendor_error));
  if (!text.empty()) reason += ", " + text;
  start_crash_dump(IsSilentError(vendor_error), reason);
  backup_logging_files_before_crash(dump_suffix());
  return false;
}

void DebugCentral::HandleDebugInfoEvent(const HciPacket& event) {
  if (event.size() < kDebugInfoMinSize) {
    LOG(ERROR) << __func__ << ": Invalid length of debug info event!";
    return;
  }
  start_crash_dump(false, kReasonDebugInfo);
  AppendToSocDump(event);
}

void DebugCentral::HandleFirmwareDumpFragment(const HciPacket& event) {
  if (event.size() < kFragmentMinSize) {
    LOG(ERROR) << __func__ << ": Invalid length of bqr debug firmware dump event!";
    return;
  }
  if (dump_suffix().empty()) {
    LOG(ERROR) << __func__ << ": did not receive Root Inflammation event before FW Dump!";
    start_crash_dump(false, kReasonFragmentWithoutRootInflammation);
  }
  AppendToSocDump(event);
}

void DebugCentral::HandleChreDumpFragment(const HciPacket& event) {
  if (event.size() < kFragmentMinSize) {
    LOG(ERROR) << __func__ << ": Invalid length of bqr chre debug dump event!";
    return;
  }
  if (dump_suffix().empty()) {
    LOG(ERROR) << __func__ << ": did not receive Root Inflammation event before CHRE Dump!";
    start_crash_dump(false, kReasonFragmentWithoutRootInflammation);
  }
  const std::lock_guard lock(chre_dump_mutex_);
  AppendToChreDump(event);
}

void DebugCentral::AppendToSocDump(const HciPacket& event) {
  static Complaints complaints;
  if (IsLastFragment(event)) LOG(INFO) << __func__ << ": Last soc dump fragment has been received";
  const std::string path = std::string(kCoreDumpDirectory) + kSocDumpPrefix + dump_suffix() + kDumpExtension;
  const unique_fd fd = OpenFragmentFile(__func__, path, "socdump", complaints);
  if (!fd.ok() || WriteAll(fd.get(), event) == event.size()) return;
  const int error = errno;
  Complain(complaints.cut,
           [&] { return "AppendToSocDump: " + path + " misses the rest of a fragment: " + os::ErrorText(error); });
}

void DebugCentral::AppendToChreDump(const HciPacket& event) {
  static Complaints complaints;
  const std::string path = std::string(kCoreDumpDirectory) + kChreDumpPrefix + dump_suffix() + kDumpExtension;
  size_t written = 0;
  if (const unique_fd fd = OpenFragmentFile(__func__, path, "chredump", complaints); fd.ok()) {
    written = WriteAll(fd.get(), event);
    if (written != event.size()) {
      Complain(complaints.cut, [&] {
        return StringPrintf(
            "AppendToChreDump: actual write (%ld bytes) is not the same with expected write (%ld bytes) size.",
            static_cast<long>(written), static_cast<long>(event.size()));
      });
    }
    LOG(INFO) << StringPrintf("%s: total written %ld bytes", __func__, static_cast<long>(written));
  }
  if (written != event.size()) {
    ++unsaved_chre_segments_;
    Complain(complaints.unsaved, [&] {
      return StringPrintf("AppendToChreDump: there are %lu segments not be saved",
                          static_cast<unsigned long>(unsaved_chre_segments_));
    });
  }
  if (IsLastFragment(event)) LOG(INFO) << __func__ << ": Last Chre dump packet has been received";
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
