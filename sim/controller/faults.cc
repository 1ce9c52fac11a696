#include "sim/controller/faults.h"

#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <sstream>

namespace bthal::sim {
namespace {

struct Key {
  const char* name;
  uint64_t value;  // when it is not given
  uint64_t max;
};

struct Kind {
  FaultKind kind;
  const char* name;
  const char* help;
  std::vector<Key> keys;
};

constexpr uint64_t kMaxMs = 3'600'000;
constexpr uint64_t kByte = 0xFF;

const std::vector<Kind>& Kinds() {
  static const auto& kinds = *new std::vector<Kind>{
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

struct Name {
  const char* name;
  uint16_t opcode;
};

constexpr Name kCommandNames[] = {
    {"reset", 0x0C03},      {"version", 0xFC79}, {"speed", 0xFC18},  {"otp", 0xFE2F},        {"fast-mode", 0xFE72},
    {"minidriver", 0xFC2E}, {"record", 0xFC4C},  {"launch", 0xFC4E}, {"local-name", 0x0C14}, {"sleep-mode", 0xFC27},
    {"address", 0xFC01},    {"debug", 0xFD5B},   {"finder", 0xFD62}, {"afh", 0x0C3F},
};

bool ParseNumber(const std::string& text, uint64_t* value) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return false;
  char* end = nullptr;
  errno = 0;
  *value = strtoull(text.c_str(), &end, 0);
  return errno == 0 && *end == '\0';
}

std::vector<std::string> Words(const std::string& text) {
  std::string blanks = text;
  std::replace(blanks.begin(), blanks.end(), ',', ' ');
  std::istringstream stream(blanks);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

bool ParseOpcode(const std::string& text, Fault* fault, std::string* error) {
  for (const Name& name : kCommandNames) {
    if (text == name.name) {
      fault->opcode = name.opcode;
      return true;
    }
  }
  uint64_t value = 0;
  if (!ParseNumber(text, &value) || value > 0xFFFF) {
    *error = "'" + text + "' is no opcode; give a number such as 0x0C03, or one of:";
    for (const Name& name : kCommandNames) *error += std::string(" ") + name.name;
    return false;
  }
  fault->opcode = static_cast<uint16_t>(value);
  return true;
}

bool ParseKey(const Kind& kind, const std::string& key, const std::string& text, Fault* fault, std::string* error) {
  if (key == "opcode") return ParseOpcode(text, fault, error);
  if (key == "count" && text == "always") {
    fault->count.reset();
    return true;
  }
  uint64_t value = 0;
  if (!ParseNumber(text, &value)) {
    *error = "'" + text + "' is no number for " + key;
    return false;
  }
  if (key == "count") {
    fault->count = value;
    return true;
  }
  if (key == "after") {
    fault->after = value;
    return true;
  }
  for (const Key& known : kind.keys) {
    if (key != known.name) continue;
    if (value > known.max) {
      *error = std::string(kind.name) + ": " + key + " is at most " + std::to_string(known.max);
      return false;
    }
    fault->keys[key] = value;
    return true;
  }
  *error = std::string(kind.name) + " takes no '" + key + "', but opcode, after, count";
  for (const Key& known : kind.keys) *error += std::string(", ") + known.name;
  return false;
}

bool ParseWord(const Kind& kind, const std::string& word, Fault* fault, std::string* error) {
  if (word == "now") {
    fault->now = true;
    return true;
  }
  const size_t equals = word.find('=');
  if (equals == std::string::npos) {
    *error = "'" + word + "' lacks its value: write " + word + "=VALUE";
    return false;
  }
  return ParseKey(kind, word.substr(0, equals), word.substr(equals + 1), fault, error);
}

// Whether the kind is about the answer to a command, so that it cannot strike without one.
bool NeedsCommand(FaultKind kind) {
  return kind == FaultKind::kNoAnswer || kind == FaultKind::kLateAnswer || kind == FaultKind::kWrongStatus ||
         kind == FaultKind::kZeroCredits || kind == FaultKind::kLostByte;
}

}  // namespace

bool ParseFault(const std::string& text, Fault* fault, std::string* error) {
  const std::vector<std::string> words = Words(text);
  if (words.empty()) {
    *error = "a fault begins with its kind, for example no-answer,opcode=reset";
    return false;
  }
  const auto kind = std::find_if(Kinds().begin(), Kinds().end(), [&](const Kind& k) { return words[0] == k.name; });
  if (kind == Kinds().end()) {
    *error = "no fault is called '" + words[0] + "'; there are:";
    for (const Kind& known : Kinds()) *error += std::string(" ") + known.name;
    return false;
  }
  Fault parsed;
  parsed.kind = kind->kind;
  parsed.text = text;
  for (const Key& key : kind->keys) parsed.keys[key.name] = key.value;
  for (size_t i = 1; i < words.size(); ++i) {
    if (!ParseWord(*kind, words[i], &parsed, error)) return false;
  }
  if (parsed.now && NeedsCommand(parsed.kind)) {
    *error = std::string(kind->name) + " is about an answer and cannot strike now, without a command";
    return false;
  }
  *fault = std::move(parsed);
  return true;
}

std::string FaultHelp() {
  std::ostringstream help;
  help << "A fault is written KIND[,KEY=VALUE]... and strikes at a command from the host:\n"
          "  opcode=N   at this command only, a number or a name; otherwise at any\n"
          "  after=N    lets N such commands pass first (0)\n"
          "  count=N    strikes N times, or always (1)\n"
          "  now        at once instead, if the kind is not about an answer\n"
          "Kinds, and the values of their keys when not given:\n";
  for (const Kind& kind : Kinds()) {
    std::string head = kind.name;
    for (const Key& key : kind.keys) {
      head += std::string(",") + key.name + "=" + (key.max == kByte ? Hex(key.value, 2) : std::to_string(key.value));
    }
    help << "  " << head << "\n      " << kind.help << "\n";
  }
  help << "Names for opcodes:";
  for (const Name& name : kCommandNames) help << ' ' << name.name << '=' << Hex(name.opcode, 4);
  help << "\nExamples:\n"
          "  no-answer,opcode=reset,count=2          both attempts of the first reset fail\n"
          "  wrong-status,opcode=launch,status=0x12  the patch is not launched\n"
          "  no-answer,count=always                  a dead controller\n"
          "  root-inflammation,vendor=0xC5,after=30  a sensor-hub failure after thirty commands\n"
          "  split,opcode=reset,packets=100,size=1   a hundred packets arrive byte by byte\n";
  return help.str();
}

std::vector<Fault> Faults::StrikeAt(uint16_t opcode) {
  std::vector<Fault> striking;
  for (Fault& fault : faults_) {
    if (fault.now || (fault.opcode && *fault.opcode != opcode) || fault.count == 0) continue;
    if (fault.after != 0) {
      --fault.after;
      continue;
    }
    if (fault.count) --*fault.count;
    striking.push_back(fault);
  }
  return striking;
}

std::vector<Fault> Faults::StrikeNow() {
  std::vector<Fault> striking;
  for (Fault& fault : faults_) {
    if (!fault.now || fault.count == 0) continue;
    fault.count = 0;
    striking.push_back(fault);
  }
  return striking;
}

}  // namespace bthal::sim
