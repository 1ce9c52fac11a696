// The record keeper for everything that goes wrong or is worth remembering on the controller path.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "debug_central/anchor_type.h"
#include "debug_central/bqr_error_code.h"
#include "debug_central/hooks.h"
#include "debug_central/record_table.h"
#include "debug_central/saved_dumps.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// Process-wide and never destroyed. All operations may be called from any thread, also from event watchers: none calls
// flow control.
class DebugCentral {
 public:
  using NotifyCallback = std::function<void(const hci::HciPacket&)>;

  static constexpr size_t kMaxHistoryRecords = RecordTable::kMaxHistory;

  static DebugCentral& Get();

  // Appends one record, dropping the oldest of 400.
  void UpdateRecord(AnchorType type, std::string_view text);

  // Have others take part; before the first session, and no later. Sources of one section follow one another in the
  // order in which they were registered.
  void RegisterDumpSource(DumpSection section, DumpSource source);
  void SetHooks(DebugHooks hooks);

  // Writes the service's diagnostic report to `fd`, which stays the caller's. A reader that takes nothing for a second
  // gets no more.
  void Dump(int fd);

  // Reports take a crash dump, and root inflammations reach the stack, only while a client is connected.
  void HasClientConnectWith(bool has_client);

  // Remembers the kernel's log buffer of the UART at `port` (a device path such as /dev/ttySAC16).
  void SetBtUartDebugPort(const std::string& port);
  // That log buffer's path; empty while none is remembered.
  std::string uart_debug_port() const;

  // Installs (empty: removes) what tells the stack of a synthetic event. It is called on a thread of its own.
  void SetNotifyCallback(NotifyCallback callback);

  // What the monitor's watchers hand on. The second returns true to keep the event from the stack.
  void HandleHardwareError(const hci::HciPacket& event);
  bool HandleVendorEvent(const hci::HciPacket& event);

  // True for the stack's own request for controller debug information (opcode 0xFD5B), which is then recorded.
  bool IsControllerDebugDumpOpcode(const hci::HciPacket& command);

  // Records the error, tells the stack, takes the crash dump and ends the process: with the kind's own fatal message,
  // or quietly with SIGKILL (no client, quiet kinds, unsupported hardware stage). The first report wins; later ones
  // wait for the end. Returns only when a test has replaced both endings, and then the next report may begin.
  void ReportBqrError(BqrErrorCode code, const std::string& info);

  // The same on a thread of its own, for those who may not wait for the end. Returns when this report, or another, has
  // begun: what the caller's failure makes others report comes later.
  void ReportAside(BqrErrorCode code, const std::string& info);

  // For a process that is about to end in another way: from now on reporters wait for that end. Waits for nothing; a
  // report that is under way goes on. The caller's own reports are only logged.
  void HoldReports();

  // True on a hardware stage whose old chip firmware is no longer supported: its errors are not worth a dump.
  bool hw_stage_firmware_no_longer_supported() const;

 private:
  friend class DebugAnchor;

  DebugCentral() = default;

  void Append(AnchorType type, std::string_view text, std::string_view suffix);

  // `begun` (may be empty) is called once nobody can come before.
  void Report(BqrErrorCode code, const std::string& info, const std::function<void()>& begun);
  // Its steps.
  void RecordReport(BqrErrorCode code, const std::string& info);
  void TellStack(BqrErrorCode code);
  void EndProcess(BqrErrorCode code, const std::string& info);

  // True keeps the event from the stack.
  bool HandleQualityReport(const hci::HciPacket& event);
  bool HandleRootInflammation(const hci::HciPacket& event);
  void HandleDebugInfoEvent(const hci::HciPacket& event);
  void HandleFirmwareDumpFragment(const hci::HciPacket& event);
  void HandleChreDumpFragment(const hci::HciPacket& event);
  // Append the whole event to the fragments' file.
  void AppendToSocDump(const hci::HciPacket& event);
  void AppendToChreDump(const hci::HciPacket& event);

  // Takes the process's one crash dump, and removes the oldest; does nothing once it has been taken. A silent one has
  // no crashinfo file.
  void start_crash_dump(bool silent, const std::string& reason);
  // The time text of the crash dump, empty while none was taken.
  std::string dump_suffix() const;
  std::vector<DumpFiles> DumpFileKinds() const;
  void WriteCoreDump(const std::string& suffix, const std::string& reason);
  void WriteCrashInfo(const std::string& suffix, const std::string& reason);
  // Copies the logs that would not outlive the next start.
  void backup_logging_files_before_crash(const std::string& suffix);

  void WriteReport(int fd);
  std::string FormatRecords();
  void DumpSectionOf(int fd, DumpSection section) const;

  std::vector<std::pair<DumpSection, DumpSource>> dump_sources_;
  DebugHooks hooks_;

  std::atomic<bool> has_client_{false};
  // Guards what follows; never held while anything blocks. Recursive, so that a record can be written from under it.
  mutable std::recursive_mutex mutex_;
  NotifyCallback notify_cb_;
  std::string uart_debug_port_;
  std::string dump_suffix_;
  RecordTable records_;

  // Fragments come from the receive thread, and from who asked the sensor hub for its dump. Held while a fragment is
  // written; guards what follows.
  std::mutex chre_dump_mutex_;
  uint64_t unsaved_chre_segments_ = 0;

  // Held by the first reporter to the end of the process: the others park on it.
  std::mutex report_mutex_;
  std::atomic<std::thread::id> reporter_{};
};

// A scoped record: `text` + " [ IN]" now, `text` + " [OUT]" when the scope ends, or that of the anchor that took it
// over. Made for every packet, so it keeps the text within itself; no text of this service comes near kMaxText.
class DebugAnchor {
 public:
  static constexpr size_t kMaxText = 64;  // what is longer is cut off

  DebugAnchor(AnchorType type, std::string_view text, DebugCentral& central = DebugCentral::Get());
  DebugAnchor(DebugAnchor&& other) noexcept;
  DebugAnchor& operator=(DebugAnchor&&) = delete;
  ~DebugAnchor();

 private:
  std::string_view text() const { return {text_.data(), length_}; }

  AnchorType type_;
  size_t length_;
  std::array<char, kMaxText> text_;
  DebugCentral* central_;  // null: taken over
};

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug

namespace android::hardware::bluetooth {
// The short names by which the other components call the diagnostics.
using V1_1::qnlbtlinux::debug::AnchorType;
using V1_1::qnlbtlinux::debug::BqrErrorCode;
using V1_1::qnlbtlinux::debug::DebugAnchor;
using V1_1::qnlbtlinux::debug::DebugCentral;
}  // namespace android::hardware::bluetooth
