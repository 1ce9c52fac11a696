// The record keeper for everything that goes wrong or is worth remembering on the controller path.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "anchor_type.h"
#include "bqr_error_code.h"
#include "h4/hci_packet.h"

namespace android::hardware::bluetooth::hci {
class HciEventWatcher;
class HciFlowControl;
}  // namespace android::hardware::bluetooth::hci

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// Process-wide and never destroyed. All operations may be called from any thread; none but StartMonitor and StopMonitor
// calls flow control, so the others may be called from event watchers.
class DebugCentral {
 public:
  using NotifyCallback = std::function<void(const hci::HciPacket&)>;

  static constexpr size_t kMaxHistoryRecords = 400;

  static DebugCentral& Get();

  // Appends one record, dropping the oldest of 400.
  void UpdateRecord(AnchorType type, std::string_view text);

  // Writes the service's diagnostic report to `fd`, which stays the caller's.
  void Dump(int fd);

  // Reports take a crash dump, and tell the stack, only while a client is connected.
  void HasClientConnectWith(bool has_client);

  // Remembers the kernel's log buffer of the UART at `port` (a device path such as /dev/ttySAC16).
  void SetBtUartDebugPort(const std::string& port);

  // Installs (empty: removes) what tells the stack of a synthetic event.
  void SetNotifyCallback(NotifyCallback callback);

  // Registers the four event watchers with `flow`; does nothing but complain about null. StopMonitor removes them; it is
  // harmless without a monitor, and after the flow control has gone.
  void StartMonitor(hci::HciFlowControl* flow);
  void StopMonitor();

  // True for the stack's own request for controller debug information (opcode 0xFD5B), which is then recorded.
  bool IsControllerDebugDumpOpcode(const hci::HciPacket& command);

  // Records the error, tells the stack, takes the crash dump and ends the process: with the kind's own fatal message, or
  // quietly with SIGKILL (no client, quiet kinds, unsupported hardware stage). The first report wins; later ones wait for
  // the end. Returns only when a test has replaced both endings.
  void ReportBqrError(BqrErrorCode code, const std::string& info);

  // True on a hardware stage whose old chip firmware is no longer supported: no dump is taken there.
  bool hw_stage_firmware_no_longer_supported() const;

 private:
  friend class VendorEventHandler;

  struct Record {
    std::string text;
    std::chrono::system_clock::time_point time;
  };

  DebugCentral();

  void start_crash_dump(bool silent, const std::string& reason);
  void backup_logging_files_before_crash(const std::string& suffix);

  std::atomic<bool> has_client_{false};
  mutable std::recursive_mutex mutex_;
  NotifyCallback notify_cb_;
  std::string uart_debug_port_;
  std::string dump_suffix_;
  std::deque<Record> history_;
  std::map<AnchorType, Record> last_appearance_;
  std::vector<std::unique_ptr<hci::HciEventWatcher>> watchers_;
  std::weak_ptr<hci::HciFlowControl> monitored_;
};

// A scoped record: `text` + " [ IN]" now, `text` + " [OUT]" when the scope ends.
class DebugAnchor {
 public:
  DebugAnchor(AnchorType type, std::string text, DebugCentral& central = DebugCentral::Get());
  DebugAnchor(const DebugAnchor&) = delete;
  DebugAnchor& operator=(const DebugAnchor&) = delete;
  ~DebugAnchor();

 private:
  AnchorType type_;
  std::string text_;
  DebugCentral& central_;
};

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug

namespace android::hardware::bluetooth {
// The short names by which the other components call the diagnostics.
using V1_1::qnlbtlinux::debug::AnchorType;
using V1_1::qnlbtlinux::debug::BqrErrorCode;
using V1_1::qnlbtlinux::debug::DebugAnchor;
using V1_1::qnlbtlinux::debug::DebugCentral;
}  // namespace android::hardware::bluetooth
