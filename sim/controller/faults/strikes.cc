// What scripted faults do to the controller.
#include "sim/controller/controller.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kRootInflammation = 5;
constexpr uint8_t kSocDump = 19;
constexpr uint8_t kChreDump = 20;

uint64_t Key(const Fault& fault, const char* name) { return fault.keys.at(name); }
std::chrono::milliseconds Ms(const Fault& fault) { return std::chrono::milliseconds(Key(fault, "ms")); }

}  // namespace

Controller::Spoiled Controller::Strike(uint16_t opcode) {
  Spoiled spoiled;
  for (const Fault& fault : faults_->StrikeAt(opcode)) Strike(fault, &spoiled);
  return spoiled;
}

void Controller::StrikeNow() {
  Spoiled nothing_to_spoil;
  for (const Fault& fault : faults_->StrikeNow()) Strike(fault, &nothing_to_spoil);
}

void Controller::Strike(const Fault& fault, Spoiled* spoiled) {
  journal_->Record(WireEvent::kFault, 0, fault.text);
  switch (fault.kind) {
    case FaultKind::kNoAnswer:
      spoiled->no_answer = true;
      break;
    case FaultKind::kLateAnswer:
      spoiled->late = Ms(fault);
      break;
    case FaultKind::kWrongStatus:
      spoiled->status = static_cast<uint8_t>(Key(fault, "status"));
      break;
    case FaultKind::kZeroCredits:
      spoiled->no_credit = true;
      spoiled->credit_after = Ms(fault);
      break;
    case FaultKind::kSplit:
      line_->SplitNext(Key(fault, "packets"), Key(fault, "size"), Ms(fault));
      break;
    case FaultKind::kMerge:
      line_->MergeNext(Key(fault, "packets"), Ms(fault));
      break;
    case FaultKind::kStrayByte:
      SendRaw({static_cast<uint8_t>(Key(fault, "value"))});
      break;
    case FaultKind::kLostByte:
      spoiled->lost_byte = Key(fault, "index");
      break;
    case FaultKind::kUnknownType:
      // Looks like an event but for its type.
      SendRaw({static_cast<uint8_t>(Key(fault, "type")), 0x0E, 0x04, 0x01, 0x00, 0x00, 0x00});
      break;
    case FaultKind::kHardwareError:
      SendEvent(kHardwareErrorEvent, {static_cast<uint8_t>(Key(fault, "code"))});
      break;
    case FaultKind::kRootInflammation:
      SendEvent(kVendorEvent, {kQualityReport, kRootInflammation, static_cast<uint8_t>(Key(fault, "error")),
                               static_cast<uint8_t>(Key(fault, "vendor"))});
      break;
    case FaultKind::kDebugInfo:
    case FaultKind::kSocDump:
    case FaultKind::kChreDump:
      SendFragments(fault);
      break;
    case FaultKind::kBigHammer:
      coex_->BigHammer(static_cast<uint8_t>(Key(fault, "value")));
      break;
    case FaultKind::kHangUp:
      line_->HangUp();
      spoiled->no_answer = true;  // it would reach whoever opens the line next
      break;
    case FaultKind::kCoexHangUp:
      coex_->HangUp();
      break;
  }
}

//   byte 0      1        2           3           4   5      6       8
//      | 0xFF | length | 0x57       | 0         | 0 | last | index | data
//      | 0xFF | length | 0x58       | 19 or 20  | 0 | last | index | data
void Controller::SendFragments(const Fault& fault) {
  const uint64_t fragments = Key(fault, "fragments");
  const bool debug_info = fault.kind == FaultKind::kDebugInfo;
  const uint8_t report = fault.kind == FaultKind::kSocDump ? kSocDump : kChreDump;
  if (Key(fault, "short") != 0) {
    SendEvent(kVendorEvent, debug_info ? Bytes{kDebugInfoReport, 0x00} : Bytes{kQualityReport});
    return;
  }
  for (uint64_t i = 0; i < fragments; ++i) {
    const uint64_t index = Key(fault, "reversed") != 0 ? fragments - 1 - i : i;
    Bytes parameters{debug_info ? kDebugInfoReport : kQualityReport, debug_info ? uint8_t{0} : report, 0x00};
    Put8(parameters, index + 1 == fragments ? 1 : 0);
    Put16(parameters, static_cast<unsigned>(index & 0xFFFF));
    for (uint64_t k = 0; k < Key(fault, "size"); ++k) Put8(parameters, static_cast<unsigned>(index + k) & 0xFF);
    SendEvent(kVendorEvent, parameters);
  }
}

}  // namespace bthal::sim
