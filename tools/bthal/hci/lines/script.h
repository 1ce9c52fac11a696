// The language of `bthal hci`: one action a line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bthal::tool {

struct ScriptAction {
  enum class Verb {
    kNothing,      // an empty line, or a comment
    kSend,         // `kind`, `packet`; awaits the answer of a command if `await_answer`
    kWait,         // for a packet called `text`, at most `seconds`
    kExpect,       // that the last answer's words contain `text`
    kExpectBytes,  // that its bytes begin with `pattern`
    kSleep,        // `seconds`
    kScan,         // for `seconds`
    kInitialize,
    kClose,
    kList,  // the named commands with `text` in their names
    kHelp,  // about the command `text`, or in general
    kQuit,
  };
  Verb verb = Verb::kNothing;
  uint8_t kind = 0;
  std::vector<uint8_t> packet;
  bool await_answer = false;
  double seconds = 0;
  std::string text;
  std::vector<std::optional<uint8_t>> pattern;  // nothing stands for any byte
};

// Nothing, with one line in `error`, when the line cannot be understood.
std::optional<ScriptAction> ParseScriptLine(const std::string& line, std::string* error);

// Whether the line asks for nothing.
bool IsEmptyLine(const std::string& line);
// Whether it looks at the answer of the command before it.
bool IsExpectation(const std::string& line);

// Whether a packet is one that `wait NAME` waits for: "any", "acl", "sco", "iso", "event", an event's name as in
// "le_advertising_report", or its code as in "0x3e".
bool MatchesName(const std::string& name, uint8_t kind, const std::vector<uint8_t>& packet);

bool MatchesPattern(const std::vector<std::optional<uint8_t>>& pattern, const std::vector<uint8_t>& packet);

// The words a line can begin with that are no commands.
std::vector<std::string> ScriptVerbs();

// Where the explanations in that help begin.
inline constexpr size_t kScriptHelpColumn = 31;

// What can be written, one line each.
extern const char kScriptHelp[];

}  // namespace bthal::tool
