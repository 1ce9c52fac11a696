#define LOG_TAG "bthal.bqr"

#include "bluetooth_bqr.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <cinttypes>

#include "conf/conf.h"
#include "os/file_utils.h"
#include "os/log_throttle.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::StringPrintf;

// Quality report:
//   0xFF | length | sub-event 0x58 | report id | ...
constexpr size_t kReportIdOffset = 3;

}  // namespace

BluetoothBqr& BluetoothBqr::Get() {
  static auto& bqr = *new BluetoothBqr;
  return bqr;
}

void BluetoothBqr::OnQualityReport(const hci::HciPacket& event) {
  if (event.size() <= kReportIdOffset) return;
  const size_t id = event[kReportIdOffset];
  if (id == 0 || id >= kReportIds) return;
  const std::lock_guard lock(mutex_);
  ++reports_[id].count;
  reports_[id].latest = event;
}

void BluetoothBqr::OnControllerCapability(const hci::HciPacket& event) {
  const std::lock_guard lock(mutex_);
  ++capability_.count;
  capability_.latest = event;
}

std::string BluetoothBqr::Report() const {
  const std::lock_guard lock(mutex_);
  std::string report;
  for (size_t id = 1; id < kReportIds; ++id) {
    const Kept& kept = reports_[id];
    if (kept.count == 0) continue;
    report +=
        StringPrintf("Quality report %zu: %" PRIu64 ", the latest %s\n", id, kept.count, toString(kept.latest).c_str());
  }
  if (capability_.count != 0) report += "Controller capability: " + toString(capability_.latest) + "\n";
  return report;
}

BtBqrEnergyRecoder& BtBqrEnergyRecoder::Get() {
  static auto& recorder = *new BtBqrEnergyRecoder;
  return recorder;
}

void BtBqrEnergyRecoder::StartLogging() {
  if (!conf::Config::GetInstance().bqr_energy_report_logging) return;
  const std::lock_guard lock(mutex_);
  if (log_.is_open()) return;
  log_.clear();
  os::CreateLogFile(kBqrEnergyLogPath, log_);
}

void BtBqrEnergyRecoder::StopLogging() {
  const std::lock_guard lock(mutex_);
  os::CloseLogFileStream(log_);
}

void BtBqrEnergyRecoder::OnEnergyReport(const hci::HciPacket& event) {
  const std::lock_guard lock(mutex_);
  if (!log_.is_open()) return;
  log_ << toString(event) << '\n' << std::flush;
  static os::LogThrottle throttle;
  if (log_.fail()) {
    throttle.Log(LOG_TAG, ::android::base::ERROR,
                 [] { return std::string("OnEnergyReport: unable to write to ") + kBqrEnergyLogPath; });
  }
}

}  // namespace android::hardware::bluetooth
