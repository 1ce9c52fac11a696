#define LOG_TAG "bthal.debug_central"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "debug_central/catalogue.h"
#include "debug_central/debug_central.h"
#include "debug_central/files.h"
#include "os/kill_self.h"
#include "os/thread.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;

// How much of a report's detail the record keeps.
constexpr size_t kMaxRecordedInfo = 127;
// What a client may take to hear of the error: a blocked one does not keep a dying service alive.
constexpr std::chrono::seconds kClientPatience{1};

// The root inflammation as the controller itself would report it:
//   0xFF | length 4 | 0x58 quality report | 5 root inflammation | error code 0 | vendor error
hci::HciPacket RootInflammationEvent(BqrErrorCode code) {
  return {hci::kVendorSpecificEvent, 0x04, 0x58, 0x05, 0x00, static_cast<uint8_t>(code)};
}

}  // namespace

void DebugCentral::ReportBqrError(BqrErrorCode code, const std::string& info) { Report(code, info, nullptr); }

void DebugCentral::ReportAside(BqrErrorCode code, const std::string& info) {
  const auto begun = std::make_shared<std::promise<void>>();
  std::future<void> has_begun = begun->get_future();
  os::Thread::StartOrDie("bt_report", [this, code, info, begun] {
    Report(code, info, [begun] { begun->set_value(); });
  }).detach();
  has_begun.wait();
}

void DebugCentral::Report(BqrErrorCode code, const std::string& info, const std::function<void()>& begun) {
  const auto self = std::this_thread::get_id();
  if (reporter_ == self) {
    // A step of the report has itself failed; the report goes on.
    LOG(ERROR) << StringPrintf("%s: error_code (%d) while reporting, error_info: %s", "ReportBqrError",
                               static_cast<int>(code), info.c_str());
    return;
  }
  std::unique_lock reporting(report_mutex_, std::try_to_lock);
  if (begun) begun();
  if (!reporting.owns_lock()) reporting.lock();
  reporter_ = self;
  RecordReport(code, info);
  TellStack(code);
  EndProcess(code, info);
  reporter_ = std::thread::id();
}

void DebugCentral::HoldReports() {
  if (report_mutex_.try_lock()) reporter_ = std::this_thread::get_id();  // and never unlocked
}

void DebugCentral::RecordReport(BqrErrorCode code, const std::string& info) {
  UpdateRecord(AnchorType::kErrorReport, std::string_view{info}.substr(0, kMaxRecordedInfo));
  LOG(ERROR) << StringPrintf("%s: root inflamed event with error_code: (%d), error_info: %s", "ReportBqrError",
                             static_cast<int>(code), info.c_str());
}

void DebugCentral::TellStack(BqrErrorCode code) {
  NotifyCallback notify;
  {
    const std::lock_guard lock(mutex_);
    notify = notify_cb_;
  }
  if (!notify) return;
  LOG(WARNING) << StringPrintf("%s: notify_cb_(bqr_event)", "ReportBqrError");
  const auto told = std::make_shared<std::promise<void>>();
  os::Thread teller = os::Thread::Start("bt_notify", [notify, code, told] {
    notify(RootInflammationEvent(code));
    told->set_value();
  });
  if (!teller.joinable()) {
    LOG(ERROR) << StringPrintf("%s: the stack is not told: %s", "ReportBqrError", strerror(errno));
    return;
  }
  teller.detach();
  if (told->get_future().wait_for(kClientPatience) != std::future_status::ready) {
    LOG(ERROR) << StringPrintf("%s: the client does not take the event, going on without it", "ReportBqrError");
  }
}

void DebugCentral::EndProcess(BqrErrorCode code, const std::string& info) {
  const auto number = static_cast<uint8_t>(code);
  if (IsQuietError(number) || hw_stage_firmware_no_longer_supported() || !has_client_) {
    LOG(ERROR) << StringPrintf("%s: slient recover!", "ReportBqrError");
    os::KillSelf();
    return;
  }
  start_crash_dump(IsSilentError(number), ReasonTextOrName(code));
  backup_logging_files_before_crash(dump_suffix());
  LogFatal(code, info);
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
