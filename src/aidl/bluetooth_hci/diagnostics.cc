#include "aidl/bluetooth_hci/diagnostics.h"

#include <cinttypes>
#include <mutex>
#include <string>

#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "bluetooth_Activity.h"
#include "bluetooth_bqr.h"
#include "btqnl_protocol/btqnl_protocol.h"
#include "chre/usf_helper.h"
#include "conf/userial_type.h"
#include "debug_central/debug_central.h"
#include "debug_central/files.h"
#include "h4/uart_link.h"
#include "hci_flow_control/hci_flow_control.h"
#include "shim/low_power.h"
#include "shim/shim.h"
#include "thread/thread_dispatcher.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using ::android::base::StringPrintf;
using V1_1::qnlbtlinux::debug::DebugHooks;
using V1_1::qnlbtlinux::debug::DumpSection;

// A reader that has gone away gets no more: nothing is left to do then.
void Write(int fd, const std::string& text) { ::android::base::WriteStringToFd(text, fd); }

void DumpTransport(int fd) {
  hci::shim::GetTlDebugDump(fd, DebugCentral::Get().uart_debug_port(), V1_1::qnlbtlinux::debug::kLpmDebugPort);
}

// The sensor hub keeps no logs in the kernel.
void DumpKernelLogs(int fd) {
  if (hci::shim::GetUserialType() != conf::kUserialAoc) DumpTransport(fd);
}

std::string SensorHub() {
  if (hci::shim::GetUserialType() != conf::kUserialAoc) return "";
  const hci::UsfHelper& hub = hci::UsfHelper::Get();
  return StringPrintf("Sensor hub: port %s, low-power mode %s, %" PRIu64 " messages dropped\n",
                      hub.IsReady() ? "open" : "closed", hub.IsLpmEnabled() ? "on" : "off", hub.DroppedMessages());
}

// What was dropped, and on which way.
std::string Losses() {
  const auto line = [](const char* what, uint64_t count) { return what + (": " + std::to_string(count)) + "\n"; };
  return line("Sends without a client", BluetoothHci::DroppedPackets()) +
         line("Sends that flow control has refused", hci::HciFlowControl::RefusedSends()) +
         line("Bytes received out of step", hci::UartLink::Get().DroppedBytes()) +
         line("Thread frames dropped", hci::ThreadDispatcher::DroppedFrames());
}

std::string AwakePeriods() {
  const hci::shim::LpmStatistics link = hci::shim::LowPowerLink::Get().lpm_statistics();
  if (link.last_wake_time.empty()) return "No awake period of the link has ended\n";
  return StringPrintf("Transmissions in the link's awake periods: %" PRIu64 "; the last from %s: %" PRId64
                      " ms, %u transmissions\n",
                      link.total_wake_count, link.last_wake_time.c_str(), link.last_awake_ms, link.last_wake_count);
}

DebugHooks Hooks() {
  const std::string snoop_log = kBtsnoopLogPath;
  const std::string snoop_backup = kBtsnoopBackupPath;
  return {.transport_dump = DumpTransport,
          .logs = {{snoop_log, snoop_backup}, {snoop_log + kBtsnoopLastSuffix, snoop_backup + kBtsnoopLastSuffix}},
          .is_first_reset = [] { return BtQnlProtocol::GetInstacne().GetFirstHciResetFlag(); },
          .quality_report = [](const hci::HciPacket& event) { BluetoothBqr::Get().OnQualityReport(event); },
          .energy_report = [](const hci::HciPacket& event) { BtBqrEnergyRecoder::Get().OnEnergyReport(event); }};
}

}  // namespace

void RegisterDiagnostics() {
  static std::once_flag once;
  std::call_once(once, [] {
    DebugCentral& central = DebugCentral::Get();
    central.SetHooks(Hooks());
    central.RegisterDumpSource(DumpSection::kFirmware,
                               [](int fd) { Write(fd, BtQnlProtocol::GetInstacne().local_name() + "\n"); });
    central.RegisterDumpSource(DumpSection::kKernelLogs, DumpKernelLogs);
    central.RegisterDumpSource(DumpSection::kStatistics, [](int fd) { Write(fd, BtActivitiesLogger::Get().Report()); });
    central.RegisterDumpSource(DumpSection::kStatistics,
                               [](int fd) { Write(fd, AwakePeriods() + Losses() + SensorHub()); });
    central.RegisterDumpSource(DumpSection::kStatistics, [](int fd) { Write(fd, BluetoothBqr::Get().Report()); });
  });
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
