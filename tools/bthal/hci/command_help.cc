#include "bthal/hci/command_help.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <algorithm>

#include "bthal/hci/encode.h"
#include "bthal/hci/lines/split_words.h"
#include "bthal/hci/values.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Base = FieldType::Base;

const char* GroupWords(int group) {
  switch (group) {
    case 0x01:
      return "Link control";
    case 0x02:
      return "Link policy";
    case 0x03:
      return "Controller and baseband";
    case 0x04:
      return "Informational";
    case 0x05:
      return "Status";
    case 0x06:
      return "Testing";
    case 0x08:
      return "LE controller";
    default:
      return "Vendor";
  }
}

constexpr size_t kWidth = 80;

// `text` behind `head`, broken between words where a line is full, the rest below where it began.
std::string Wrapped(std::string head, const std::string& text) {
  const size_t column = head.size();
  std::string lines;
  for (const std::string& word : SplitWords(text)) {
    if (head.size() + word.size() > kWidth && head.size() > column) {
      head.pop_back();
      lines += head + "\n";
      head = std::string(column, ' ');
    }
    head += word + " ";
  }
  while (head.ends_with(' ')) head.pop_back();
  return lines + head + "\n";
}

// The parameters' lines, those of elements set in.
std::string FieldLines(std::span<const Field> fields, int indent) {
  constexpr int kNameWidth = 30;
  std::string text;
  for (const Field& field : fields) {
    std::string what = TypeWords(field.type);
    if (field.fallback) what += "; " + *field.fallback + " if not given";
    if (IsCounter(fields, field)) what += "; counted if not given";
    if (field.masked) what += "; one for each bit of " + field.count;
    text += Wrapped(StringPrintf("%*s%-*s  ", indent, "", kNameWidth - indent, field.name.c_str()), what);
    text += FieldLines(field.elements, indent + 2);
  }
  return text;
}

bool Matches(const Entry& command, const std::string& word) {
  const std::string opcode = StringPrintf("0x%04x", command.opcode());
  const auto contains = [&](const std::string& name) { return name.find(word) != name.npos; };
  return contains(command.name) || contains(opcode) || std::ranges::any_of(command.other_names, contains);
}

}  // namespace

std::string Usage(const Entry& command) {
  std::string text = command.name;
  for (const Field& field : command.parameters) {
    if (IsCounter(command.parameters, field)) continue;
    const std::string word = field.name + (field.fallback ? "=" + *field.fallback : "");
    text += MayBeLeftOut(command.parameters, field) ? " [" + word + "]" : " " + word;
  }
  return text;
}

std::string CommandHelp(const Entry& command) {
  const int group = command.opcode() >> 10;
  std::string text = StringPrintf("%s, 0x%04X (%s, group 0x%02X, command 0x%03X)\n", command.words.c_str(),
                                  command.opcode(), GroupWords(group), group, command.opcode() & 0x03FF);
  text += Wrapped("  ", Usage(command));
  if (!command.other_names.empty()) {
    text += "  also called " + ::android::base::Join(command.other_names, ", ") + "\n";
  }
  if (!command.parameters.empty()) text += "\n" + FieldLines(command.parameters, 2);
  if (!command.finishing_event.empty()) {
    return text + "\nAnswered by Command Status; when it is done, " + command.finishing_event + " comes.\n";
  }
  if (command.returns.size() < 2) return text + "\nReturns a status.\n";
  return text + "\nReturns\n" + FieldLines(command.returns, 2);
}

std::string CommandList(std::string_view word) {
  const std::string wanted = ScriptName(word);
  std::string text;
  int last_group = -1;
  for (const Entry& command : CommandEntries()) {
    if (command.opcode() == 0 || !Matches(command, wanted)) continue;
    const int group = command.opcode() >> 10;
    if (group != last_group) text += StringPrintf("%s (0x%02X)\n", GroupWords(group), group);
    last_group = group;
    text += Wrapped(StringPrintf("  0x%04X  ", command.opcode()), Usage(command));
  }
  return text;
}

}  // namespace bthal::tool
