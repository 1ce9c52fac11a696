// What goes wrong on purpose, and the small language in which people say so.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/bytes.h"

namespace bthal::sim {

enum class FaultKind {
  kNoAnswer,
  kLateAnswer,
  kWrongStatus,
  kZeroCredits,
  kSplit,
  kMerge,
  kStrayByte,
  kLostByte,
  kUnknownType,
  kHardwareError,
  kRootInflammation,
  kDebugInfo,
  kSocDump,
  kChreDump,
  kBigHammer,
  kHangUp,
  kCoexHangUp,
};

struct Fault {
  FaultKind kind{};
  std::string text;                      // as it was written
  std::optional<uint16_t> opcode;        // strikes at this command only; none: at any
  uint64_t after = 0;                    // lets this many such commands pass first
  std::optional<uint64_t> count = 1;     // strikes so many times; none: always
  bool now = false;                      // strikes once, as soon as the board knows of it
  std::map<std::string, uint64_t> keys;  // what else the kind takes, defaults filled in
};

// Understands one fault:
//
//   KIND[,KEY=VALUE]...
//
// Words are parted by commas or blanks. See FaultHelp for the kinds and their keys. False with the reason in `error`.
bool ParseFault(const std::string& text, Fault* fault, std::string* error);

// The language, for people: kinds, keys, defaults and examples.
std::string FaultHelp();

// The faults in force.
class Faults {
 public:
  // Those that have struck their last are forgotten.
  void Add(Fault fault);
  void Clear() { faults_.clear(); }
  // "no-answer,opcode=reset  strikes 2 more times": those that may still strike, in their order.
  std::vector<std::string> InForce() const;
  // Those that strike at this command, each of which has then struck once more.
  std::vector<Fault> StrikeAt(uint16_t opcode);
  // Those that do not wait for a command.
  std::vector<Fault> StrikeNow();

 private:
  std::vector<Fault> faults_;
};

}  // namespace bthal::sim
