#include "bthal/hci/lines/line_completion.h"

#include <algorithm>
#include <iterator>

#include "bthal/hci/dictionary.h"
#include "bthal/hci/encode.h"
#include "bthal/hci/lines/script.h"
#include "bthal/hci/lines/split_words.h"

namespace bthal::tool {
namespace {

using Words = std::vector<std::string>;

Words CommandNames() {
  Words names;
  for (const Entry& command : CommandEntries()) {
    if (command.opcode() == 0) continue;
    names.push_back(command.name);
    names.insert(names.end(), command.other_names.begin(), command.other_names.end());
  }
  return names;
}

Words EventNames() {
  Words names = {"any", "event", "acl", "sco", "iso"};
  std::ranges::transform(EventEntries(), std::back_inserter(names), &Entry::name);
  return names;
}

// The words of a parameter's values; those of bits go on behind a '+'.
Completion CompleteValue(const FieldType& type, std::string_view typed) {
  if (!type.words) return {};
  if (const size_t plus = typed.rfind('+'); type.bits && plus != typed.npos) typed.remove_prefix(plus + 1);
  Words words;
  for (const CodeWord& word : *type.words) words.push_back(ScriptName(word.words));
  return CompleteWord(typed, words);
}

Completion CompleteParameter(const Entry& command, const Words& before, std::string_view typed) {
  if (const size_t equals = typed.find('='); equals != typed.npos) {
    const auto field = std::ranges::find(command.parameters, typed.substr(0, equals), &Field::name);
    if (field == command.parameters.end()) return {};
    return CompleteValue(field->type, typed.substr(equals + 1));
  }
  Words names;
  for (const Field& field : command.parameters) {
    const auto gives = [&](const std::string& word) { return word.starts_with(field.name + "="); };
    if (!IsCounter(command.parameters, field) && std::ranges::none_of(before, gives)) names.push_back(field.name + "=");
  }
  return CompleteWord(typed, names);
}

}  // namespace

Completion CompleteWord(std::string_view typed, std::span<const std::string> words) {
  Completion completion{typed.size(), {}};
  std::ranges::copy_if(words, std::back_inserter(completion.candidates),
                       [&](const std::string& word) { return !word.empty() && word.starts_with(typed); });
  std::ranges::sort(completion.candidates);
  completion.candidates.erase(std::unique(completion.candidates.begin(), completion.candidates.end()),
                              completion.candidates.end());
  return completion;
}

Completion CompleteLine(std::string_view line, std::span<const std::string> more_verbs) {
  if (line.find('#') != line.npos) return {};
  Words before = SplitWords(std::string(line));
  std::string typed;
  if (!line.empty() && line.back() != ' ' && !before.empty()) {
    typed = before.back();
    before.pop_back();
  }
  if (!before.empty() && before.front() == "nowait") {
    before.erase(before.begin());
    more_verbs = {};
  }
  if (before.empty()) {
    Words words = CommandNames();
    for (const std::string& verb : ScriptVerbs()) words.push_back(verb);
    words.insert(words.end(), more_verbs.begin(), more_verbs.end());
    return CompleteWord(typed, words);
  }
  const std::string& first = before.front();
  if (first == "help" || first == "list") return CompleteWord(typed, before.size() == 1 ? CommandNames() : Words{});
  if (first == "wait") return CompleteWord(typed, before.size() == 1 ? EventNames() : Words{});
  const Entry* command = FindCommand(first);
  return command != nullptr ? CompleteParameter(*command, before, typed) : Completion{};
}

}  // namespace bthal::tool
