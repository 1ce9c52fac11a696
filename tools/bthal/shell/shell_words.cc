#include "bthal/shell/shell_words.h"

#include <algorithm>
#include <array>

#include "bthal/hci/lines/split_words.h"
#include "sim/controller/faults/fault_kinds.h"

namespace bthal::tool {
namespace {

using Words = std::vector<std::string>;

const std::array<std::string, 4> kVerbs = {"fault", "faults", "restart", "state"};

// KIND, then KEY=VALUE, parted by blanks or commas.
Completion CompleteFault(std::string_view typed) {
  const size_t begin = typed.find_first_not_of(" ,");
  const size_t end = typed.find_first_of(" ,", begin == typed.npos ? typed.size() : begin);
  Words words;
  if (end == typed.npos) {
    for (const sim::FaultWord& kind : sim::FaultWords()) words.emplace_back(kind.name);
    return CompleteWord(begin == typed.npos ? "" : typed.substr(begin), words);
  }
  const std::string_view last = typed.substr(typed.find_last_of(" ,") + 1);
  if (last.starts_with("opcode=")) {
    for (const sim::CommandName& name : sim::CommandNames()) words.emplace_back(name.name);
    return CompleteWord(last.substr(last.find('=') + 1), words);
  }
  words = {"opcode=", "after=", "count=", "now"};
  for (const sim::FaultWord& kind : sim::FaultWords()) {
    if (typed.substr(begin, end - begin) != kind.name) continue;
    for (const sim::FaultKey& key : kind.keys) words.push_back(std::string(key.name) + "=");
  }
  return CompleteWord(last, words);
}

}  // namespace

bool IsShellVerb(const std::string& word) { return std::ranges::find(kVerbs, word) != kVerbs.end(); }

Completion CompleteShellLine(std::string_view line) {
  static constexpr std::string_view kFault = "fault ";
  if (line.starts_with(kFault)) return CompleteFault(line.substr(kFault.size()));
  if (line.starts_with("faults ")) return CompleteWord(line.substr(line.find(' ') + 1), Words{"clear"});
  return CompleteLine(line, kVerbs);
}

std::string FaultWordsHelp() { return sim::FaultHelp(); }

}  // namespace bthal::tool
