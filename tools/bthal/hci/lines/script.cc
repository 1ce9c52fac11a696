#include "bthal/hci/lines/script.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <algorithm>
#include <span>

#include "bthal/hci/dictionary.h"
#include "bthal/hci/encode.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/lines/split_words.h"
#include "bthal/hci/lines/suggestion.h"
#include "bthal/hci/words.h"

namespace bthal::tool {

using Verb = ScriptAction::Verb;
using Words = std::span<const std::string>;

namespace {

using ::android::base::StringPrintf;

constexpr double kDefaultWaitSeconds = 5;
constexpr double kDefaultScanSeconds = 1;

std::string Joined(Words words) { return ::android::base::Join(words, ' '); }

std::optional<uint8_t> RawKind(const std::string& word) {
  if (word == "cmd") return kCommand;
  if (word == "acl") return kAclData;
  if (word == "sco") return kScoData;
  if (word == "iso") return kIsoData;
  return std::nullopt;
}

bool ParseRaw(uint8_t kind, Words words, ScriptAction* action, std::string* error) {
  const std::optional<std::vector<uint8_t>> bytes = ParseHex(Joined(words.subspan(1)));
  if (!bytes || bytes->empty()) {
    *error = StringPrintf("%s: expected the packet's bytes in hex, as in '%s'", words[0].c_str(),
                          kind == kCommand ? "cmd 03 0c 00" : (words[0] + " 01 00 02 00 aa bb").c_str());
    return false;
  }
  action->verb = Verb::kSend;
  action->kind = kind;
  action->packet = *bytes;
  action->await_answer = kind == kCommand;
  return true;
}

// An optional count of seconds at `at`, and nothing behind it.
bool ParseSecondsAt(Words words, size_t at, double fallback, ScriptAction* action, std::string* error) {
  action->seconds = fallback;
  if (words.size() <= at) return true;
  const std::optional<double> seconds = ParseSeconds(words[at]);
  if (!seconds || words.size() > at + 1) {
    *error =
        StringPrintf("%s: expected a number of seconds, not '%s'", words[0].c_str(), Joined(words.subspan(at)).c_str());
    return false;
  }
  action->seconds = *seconds;
  return true;
}

bool ParsePattern(const std::string& text, std::vector<std::optional<uint8_t>>* pattern) {
  const std::string digits = ::android::base::StringReplace(text, " ", "", true);
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    const std::string pair = digits.substr(i, 2);
    const std::optional<std::vector<uint8_t>> byte = ParseHex(pair);
    if (pair != ".." && (!byte || byte->size() != 1)) return false;
    pattern->push_back(pair == ".." ? std::nullopt : std::optional(byte->front()));
  }
  return !pattern->empty() && digits.size() % 2 == 0;
}

bool ParseSleep(Words words, ScriptAction* action, std::string* error) {
  if (words.size() < 2) {
    *error = "sleep: expected a number of seconds, as in 'sleep 0.5'";
    return false;
  }
  return ParseSecondsAt(words, 1, 0, action, error);
}

constexpr const char* kPacketNames[] = {"any", "event", "acl", "sco", "iso"};

bool IsAwaitable(const std::string& name) {
  if (name.starts_with("0x")) return ParseNumber(name, 0xFF).has_value();
  return std::ranges::find(kPacketNames, name) != std::end(kPacketNames) ||
         std::ranges::any_of(EventEntries(),
                             [&](const Entry& event) { return ::android::base::EqualsIgnoreCase(event.name, name); });
}

std::string ClosestEvent(const std::string& name) {
  std::vector<std::string> names(std::begin(kPacketNames), std::end(kPacketNames));
  for (const Entry& event : EventEntries()) names.push_back(event.name);
  return Closest(name, names);
}

bool ParseWait(Words words, ScriptAction* action, std::string* error) {
  if (words.size() < 2) {
    *error = "wait: expected the name of an event, as in 'wait le_advertising_report 2'";
    return false;
  }
  action->text = words[1];
  if (!IsAwaitable(words[1])) {
    const std::string meant = ClosestEvent(words[1]);
    *error = StringPrintf("wait: '%s' is no event%s; write its name, its code as 0x3e, or any, event, acl, sco, iso",
                          words[1].c_str(), meant.empty() ? "" : (" (did you mean '" + meant + "'?)").c_str());
    return false;
  }
  return ParseSecondsAt(words, 2, kDefaultWaitSeconds, action, error);
}

bool ParseExpect(Words words, ScriptAction* action, std::string* error) {
  action->text = Joined(words.subspan(1));
  if (!action->text.empty()) return true;
  *error = "expect: expected words of the last answer, as in 'expect success'";
  return false;
}

bool ParseExpectBytes(Words words, ScriptAction* action, std::string* error) {
  if (ParsePattern(Joined(words.subspan(1)), &action->pattern)) return true;
  *error = "expect_bytes: expected pairs of hex digits, '..' for any byte, as in 'expect_bytes 0e 04 .. 03 0c 00'";
  return false;
}

bool ParseScan(Words words, ScriptAction* action, std::string* error) {
  return ParseSecondsAt(words, 1, kDefaultScanSeconds, action, error);
}

bool ParseHelp(Words words, ScriptAction* action, std::string* error) {
  action->text = Joined(words.subspan(1));
  if (action->text.empty() || FindCommand(action->text) != nullptr) return true;
  *error = StringPrintf("help: '%s' is no command ('list' shows them)", action->text.c_str());
  return false;
}

bool ParseList(Words words, ScriptAction* action, std::string*) {
  action->text = Joined(words.subspan(1));
  return true;
}

bool ParseAlone(Words words, ScriptAction*, std::string* error) {
  if (words.size() == 1) return true;
  *error = words[0] + ": takes nothing behind it";
  return false;
}

struct VerbEntry {
  const char* word;
  Verb verb;
  bool (*parse)(Words, ScriptAction*, std::string*);
};

constexpr VerbEntry kVerbs[] = {
    {"wait", Verb::kWait, ParseWait},
    {"expect", Verb::kExpect, ParseExpect},
    {"expect_bytes", Verb::kExpectBytes, ParseExpectBytes},
    {"sleep", Verb::kSleep, ParseSleep},
    {"le_scan", Verb::kScan, ParseScan},
    {"initialize", Verb::kInitialize, ParseAlone},
    {"close", Verb::kClose, ParseAlone},
    {"list", Verb::kList, ParseList},
    {"help", Verb::kHelp, ParseHelp},
    {"quit", Verb::kQuit, ParseAlone},
    {"exit", Verb::kQuit, ParseAlone},
};

bool ParseNamed(Words words, ScriptAction* action, std::string* error) {
  const Entry* command = FindCommand(words[0]);
  if (command == nullptr) {
    *error = StringPrintf("'%s' is no command ('list' shows them, 'help' the rest)", words[0].c_str());
    return false;
  }
  std::optional<std::vector<uint8_t>> packet = BuildCommand(*command, words.subspan(1), error);
  if (!packet) return false;
  action->verb = Verb::kSend;
  action->kind = kCommand;
  action->packet = std::move(*packet);
  action->await_answer = true;
  return true;
}

bool ParseWords(Words words, ScriptAction* action, std::string* error) {
  const auto* verb = std::ranges::find_if(kVerbs, [&](const VerbEntry& entry) { return entry.word == words[0]; });
  if (verb != std::end(kVerbs)) {
    action->verb = verb->verb;
    return verb->parse(words, action, error);
  }
  if (words[0] == "nowait" && words.size() > 1) {
    const bool parsed = ParseWords(words.subspan(1), action, error);
    if (parsed && action->verb != Verb::kSend) *error = "nowait: only a command can go without waiting";
    action->await_answer = false;
    return parsed && action->verb == Verb::kSend;
  }
  if (const std::optional<uint8_t> kind = RawKind(words[0])) return ParseRaw(*kind, words, action, error);
  return ParseNamed(words, action, error);
}

// What the line asks for; nothing where it cannot be read.
std::optional<Verb> VerbOf(const std::string& line) {
  std::string ignored;
  const std::optional<ScriptAction> action = ParseScriptLine(line, &ignored);
  return action ? std::optional(action->verb) : std::nullopt;
}

}  // namespace

const char kScriptHelp[] =
    "  reset, le_scan_enable 1 ...  a named command; waits for the answer. Its parameters in their order, or\n"
    "                               name=value; 'list' shows all, 'help COMMAND' explains one\n"
    "  cmd HEX                      a command as bytes: opcode, length, parameters; waits as well\n"
    "  nowait COMMAND               either of them, without waiting\n"
    "  acl HEX, sco HEX, iso HEX    a data packet as bytes\n"
    "  wait EVENT [SECONDS]         until that event comes (5 s): a name as le_advertising_report,\n"
    "                               a code as 0x3e, or any, event, acl, sco, iso\n"
    "  expect TEXT                  fail unless the words of the last answer contain TEXT\n"
    "  expect_bytes HEX             fail unless its bytes begin so; '..' stands for any byte\n"
    "  le_scan [SECONDS]            set scan parameters, scan for so long (1 s), stop\n"
    "  sleep SECONDS\n"
    "  close, initialize            give the HAL up, and take it again\n"
    "  list [WORD]                  the commands, or those with WORD in their names\n"
    "  help [COMMAND]               what can be written, or all about one command\n"
    "  quit\n";

std::vector<std::string> ScriptVerbs() {
  std::vector<std::string> words = {"nowait", "cmd", "acl", "sco", "iso"};
  for (const VerbEntry& verb : kVerbs) words.emplace_back(verb.word);
  return words;
}

std::optional<ScriptAction> ParseScriptLine(const std::string& line, std::string* error) {
  ScriptAction action;
  const std::vector<std::string> words = SplitWords(line.substr(0, line.find('#')));
  if (words.empty()) return action;
  if (!ParseWords(words, &action, error)) return std::nullopt;
  return action;
}

bool IsEmptyLine(const std::string& line) { return VerbOf(line) == Verb::kNothing; }

bool IsExpectation(const std::string& line) {
  const std::optional<Verb> verb = VerbOf(line);
  return verb == Verb::kExpect || verb == Verb::kExpectBytes;
}

bool MatchesName(const std::string& name, uint8_t kind, const std::vector<uint8_t>& packet) {
  if (name == "any" || name == KindWord(kind)) return true;
  if (kind != kEvent || packet.empty()) return false;
  if (const std::optional<uint64_t> code = name.starts_with("0x") ? ParseNumber(name, 0xFF) : std::nullopt) {
    return packet[0] == *code;
  }
  // An LE Advertising Report is an LE Meta as well.
  return std::ranges::any_of(FindEvents(packet),
                             [&](const Entry* event) { return ::android::base::EqualsIgnoreCase(event->name, name); });
}

bool MatchesPattern(const std::vector<std::optional<uint8_t>>& pattern, const std::vector<uint8_t>& packet) {
  if (packet.size() < pattern.size()) return false;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] && *pattern[i] != packet[i]) return false;
  }
  return true;
}

}  // namespace bthal::tool
