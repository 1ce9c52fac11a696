#define LOG_TAG "bthal.flowcontrol"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <mutex>

#include "debug_central/debug_central.h"
#include "hci_flow_control/hci_flow_control.h"
#include "hci_flow_control/state.h"
#include "shim/shim.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::hci {
namespace {

using ::android::base::StringPrintf;

// Every event:
//   event code (1) | parameter length (1) | parameters
constexpr size_t kEventLengthOffset = 1;
constexpr size_t kEventHeaderSize = 2;

// Loopback Command:   0x19 | length | opcode (2) | ...
constexpr size_t kLoopbackCommandOpcodeOffset = 2;
constexpr uint8_t kLoopbackCommandCredits = 1;

uint8_t ReadCredits(const HciPacket& event, size_t offset) { return offset < event.size() ? event[offset] : 0; }

bool AnswersCommand(const HciPacket& event) {
  return event[0] == kCommandCompleteEvent || event[0] == kCommandStatusEvent || event[0] == kLoopbackCommandEvent;
}

// The opcode of the command that `event` answers; 0 when it answers none, or is too short to say (reported).
uint16_t hci_event_extract_command_opcode(const HciPacket& event) {
  size_t offset = 0;
  switch (event[0]) {
    case kCommandCompleteEvent:
      offset = kCommandCompleteOpcodeOffset;
      break;
    case kCommandStatusEvent:
      offset = kCommandStatusOpcodeOffset;
      break;
    case kLoopbackCommandEvent:
      offset = kLoopbackCommandOpcodeOffset;
      break;
    default:
      return 0;
  }
  if (event.size() < offset + kOpcodeSize) {
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostInvalidHciEvent, "Invalid HCI event: " + toString(event));
  }
  return ReadOpcode(event, offset);
}

// Whether the controller takes another command now: a gate, not a count, since one is outstanding at a time.
uint8_t CreditsOf(const HciPacket& event) {
  switch (event[0]) {
    case kCommandCompleteEvent:
      return ReadCredits(event, kCommandCompleteCreditsOffset);
    case kCommandStatusEvent:
      return ReadCredits(event, kCommandStatusCreditsOffset);
    case kLoopbackCommandEvent:
      return kLoopbackCommandCredits;
    default:
      return 0;
  }
}

// The opcode filter of a watcher counts for the two events that answer commands only.
bool Concerns(const HciEventWatcher& watcher, uint8_t code, uint16_t opcode) {
  if (watcher.event_code() != code) return false;
  if (code != kCommandCompleteEvent && code != kCommandStatusEvent) return true;
  return watcher.opcode() == 0 || watcher.opcode() == opcode;
}

const char* HandledText(bool handled) { return handled ? "handled" : "unhandled"; }

}  // namespace

void HciFlowControl::OnHciEventReady(const HciPacket& event, const Consumers& consumers) {
  const bool whole = event.size() >= kEventHeaderSize && event[kEventLengthOffset] + kEventHeaderSize == event.size();
  // What anybody here acts on stands behind all that came before it, and whoever gets it has it before that is done.
  if (consumers.more_to_come_cb && (!whole || watched_codes_[event[0]] || AnswersCommand(event))) {
    consumers.more_to_come_cb(false);
  }
  if (!whole) {
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostInvalidHciEvent,
                                       "Invalid / un-reassembled HCI event: " + toString(event));
    return;
  }
  if (HciEventPreProcess(event)) {
    LOG(DEBUG) << __func__ << ": HCI Event <" << toString(event) << "> handled";
  } else {
    consumers.event_cb(event);
  }
  HciEventPostProcess(event);
}

bool HciFlowControl::HciEventPreProcess(const HciPacket& event) {
  const uint8_t code = event[0];
  const uint16_t opcode = hci_event_extract_command_opcode(event);
  if (Refuses(__func__)) return false;
  const bool handled = watched_codes_[code] && ShowToWatchers(event, opcode);
  LOG(VERBOSE) << __func__ << ": HCI Event " << StringPrintf("%#hx", code) << " Opcode " << StringPrintf("%#x ", opcode)
               << HandledText(handled) << " <" << toString(event) << ">";
  return handled;
}

bool HciFlowControl::ShowToWatchers(const HciPacket& event, uint16_t opcode) {
  const uint8_t code = event[0];
  std::lock_guard lock(flow_control_mutex);
  if (Refuses("HciEventPreProcess")) return false;
  bool handled = false;
  for (HciEventWatcher* watcher : event_watchers_) {
    if (!Concerns(*watcher, code, opcode)) continue;
    const bool claimed = watcher->OnEventReceive(event);
    handled |= claimed;
    LOG(INFO) << "HciEventPreProcess: HCI Event " << StringPrintf("%#hx", code) << " Opcode "
              << StringPrintf("%#x", opcode) << " Length " << event.size() << " " << HandledText(claimed) << " by "
              << watcher->name();
  }
  // Whoever waited for this needs the lock before it goes on: what it sends next stands behind this in the packet log.
  if (handled) VndSnoopLogger::Get().Capture(event, VndSnoopLogger::kFromController, VndSnoopLogger::kEvent);
  return handled;
}

void HciFlowControl::HciEventPostProcess(const HciPacket& event) {
  const uint16_t opcode = hci_event_extract_command_opcode(event);
  const uint8_t credits = CreditsOf(event);
  LOG(VERBOSE) << __func__ << ": HCI Event " << StringPrintf("%#hx", event[0]) << " Opcode "
               << StringPrintf("%#x", opcode) << " credits " << static_cast<int>(credits) << " <" << toString(event)
               << ">";
  if (Refuses(__func__)) return;
  if (opcode == 0 && credits == 0) return;  // nothing for the queue
  std::lock_guard lock(flow_control_mutex);
  if (Refuses(__func__)) return;
  if (cmd_queue_.empty()) return;
  if (cmd_queue_.front().sent && !FinishOutstanding(opcode, event)) return;
  if (credits != 0) SendNext();
}

bool HciFlowControl::FinishOutstanding(uint16_t opcode, const HciPacket& event) {
  // Lent, not changed.
  HciPacket frame;
  frame.setToExternal(cmd_queue_.front().bytes.data(), cmd_queue_.front().bytes.size());
  if (ReadOpcode(frame, 0) != opcode) {
    if (opcode == 0) return false;
    LOG(WARNING) << "HciEventPostProcess: HCI CMD Frame and Event not matched <" << toString(frame) << "> <"
                 << toString(event) << ">";
    return false;
  }
  LOG(VERBOSE) << "HciEventPostProcess: HCI CMD Frame <" << toString(frame) << "> finished";
  FinishFront();
  return true;
}

void HciFlowControl::SendNext() {
  if (cmd_queue_.empty()) return;
  HciCmdFrame& next = cmd_queue_.front();
  LOG(DEBUG) << "HciEventPostProcess: HCI CMD Frame <" << toString(HciPacket(next.bytes)) << "> dequeued";
  next.sent = true;
  shim::Send(kCommandType, next.bytes.data(), next.bytes.size(), true);
}

}  // namespace android::hardware::bluetooth::hci
