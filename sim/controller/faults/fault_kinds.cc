#include "sim/controller/faults/fault_kinds.h"

#include <sstream>

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint64_t kMaxMs = 3'600'000;
constexpr uint64_t kByte = 0xFF;

}  // namespace

const std::vector<FaultWord>& FaultWords() {
  static const auto& kinds = *new std::vector<FaultWord>{
      {FaultKind::kNoAnswer, "no-answer", "the command is ignored", {}},
      {FaultKind::kLateAnswer,
       "late-answer",
       "the command is obeyed and answered only after ms",
       {{"ms", 1000, kMaxMs}}},
      {FaultKind::kWrongStatus, "wrong-status", "the command is refused with status", {{"status", 0x0C, kByte}}},
      {FaultKind::kZeroCredits,
       "zero-credits",
       "the answer grants no further command; the credit follows after ms (0: never)",
       {{"ms", 0, kMaxMs}}},
      {FaultKind::kSplit,
       "split",
       "from the answer on, so many packets arrive in pieces of size bytes, ms apart",
       {{"packets", 1, UINT32_MAX}, {"size", 1, 4096}, {"ms", 2, kMaxMs}}},
      {FaultKind::kMerge,
       "merge",
       "from the answer on, so many packets arrive in one piece, or what there is after ms",
       {{"packets", 2, 1000}, {"ms", 100, kMaxMs}}},
      {FaultKind::kStrayByte,
       "stray-byte",
       "a byte that belongs to nothing comes before the answer",
       {{"value", 0, kByte}}},
      {FaultKind::kLostByte,
       "lost-byte",
       "the answer's byte number index gets lost (0 is the packet type)",
       {{"index", 1, 258}}},
      {FaultKind::kUnknownType,
       "unknown-type",
       "before the answer comes a packet of a type that does not exist",
       {{"type", 0x06, kByte}}},
      {FaultKind::kHardwareError, "hardware-error", "a Hardware Error event", {{"code", 0x01, kByte}}},
      {FaultKind::kRootInflammation,
       "root-inflammation",
       "a quality report of a root inflammation",
       {{"error", 0x00, kByte}, {"vendor", 0x30, kByte}}},
      {FaultKind::kDebugInfo,
       "debug-info",
       "debug-information fragments with size bytes of data each; short=1: too short an event",
       {{"fragments", 3, 1'000'000}, {"size", 64, 240}, {"reversed", 0, 1}, {"short", 0, 1}}},
      {FaultKind::kSocDump,
       "soc-dump",
       "controller memory dump fragments",
       {{"fragments", 3, 1'000'000}, {"size", 64, 240}, {"reversed", 0, 1}, {"short", 0, 1}}},
      {FaultKind::kChreDump,
       "chre-dump",
       "sensor-hub dump fragments",
       {{"fragments", 3, 1'000'000}, {"size", 64, 240}, {"reversed", 0, 1}, {"short", 0, 1}}},
      {FaultKind::kBigHammer,
       "big-hammer",
       "the coexistence driver announces a reset of the whole chip (0x43 wants to be acknowledged)",
       {{"value", 0x42, kByte}}},
      {FaultKind::kHangUp, "hang-up", "the UART ends: the host reads end of file", {}},
      {FaultKind::kCoexHangUp, "coex-hang-up", "the coexistence device ends", {}},
  };
  return kinds;
}

const std::vector<CommandName>& CommandNames() {
  static const auto& names = *new std::vector<CommandName>{
      {"reset", kReset},
      {"version", kReadVersion},
      {"speed", kUpdateBaudRate},
      {"otp", kCheckOtp},
      {"fast-mode", kSetDownloadConfig},
      {"minidriver", kDownloadMinidriver},
      {"record", kWriteRam},
      {"launch", kLaunchRam},
      {"local-name", kReadLocalName},
      {"sleep-mode", kSetSleepMode},
      {"address", kWriteBdAddr},
      {"debug", kDebugInformation},
      {"finder", kFinder},
      {"afh", kSetAfhClassification},
  };
  return names;
}

std::string FaultHelp() {
  std::ostringstream help;
  help << "A fault is written KIND[,KEY=VALUE]... and strikes at a command from the host:\n"
          "  opcode=N   at this command only, a number or a name; otherwise at any\n"
          "  after=N    lets N such commands pass first (0)\n"
          "  count=N    strikes N times, or always (1)\n"
          "  now        at once instead, if the kind is not about an answer\n"
          "Kinds, and the values of their keys when not given:\n";
  for (const FaultWord& kind : FaultWords()) {
    std::string head = kind.name;
    for (const FaultKey& key : kind.keys) {
      head += std::string(",") + key.name + "=" + (key.max == kByte ? Hex(key.value, 2) : std::to_string(key.value));
    }
    help << "  " << head << "\n      " << kind.help << "\n";
  }
  help << "Names for opcodes:";
  for (const CommandName& name : CommandNames()) help << ' ' << name.name << '=' << Hex(name.opcode, 4);
  help << "\nExamples:\n"
          "  no-answer,opcode=reset,count=2          both attempts of the first reset fail\n"
          "  wrong-status,opcode=launch,status=0x12  the patch is not launched\n"
          "  no-answer,count=always                  a dead controller\n"
          "  root-inflammation,vendor=0xC5,after=30  a sensor-hub failure after thirty commands\n"
          "  split,opcode=reset,packets=100,size=1   a hundred packets arrive byte by byte\n";
  return help.str();
}

}  // namespace bthal::sim
