#include "bthal/hci/table_reader.h"

#include <android-base/strings.h>

#include <charconv>
#include <stdexcept>

#include "bthal/hci/lines/split_words.h"

namespace bthal::tool {
namespace {

using Base = FieldType::Base;
using InLine = FieldType::InLine;

constexpr char kModifiers[] = "(*@^=!?{";
constexpr int kVendorGroup = 0x3F;

std::vector<std::string> LogicalLines(std::string_view text) {
  std::vector<std::string> lines;
  for (const std::string& line : ::android::base::Split(std::string(text), "\n")) {
    if (line.empty() || line.starts_with('#')) continue;
    if (line.starts_with(' ') && !lines.empty()) {
      lines.back() += line;
    } else {
      lines.push_back(line);
    }
  }
  return lines;
}

int64_t Number(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hex = text.starts_with("0x");
  if (hex) text.remove_prefix(2);
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw std::invalid_argument("no number: " + std::string(text));
  }
  return negative ? -value : value;
}

size_t Digits(std::string_view text) { return text.empty() ? 0 : static_cast<size_t>(Number(text)); }

// "u16", "hex10", ...
FieldType BaseType(std::string_view name) {
  FieldType type;
  const size_t at = std::min(name.find_first_of("0123456789"), name.size());
  const std::string_view letters = name.substr(0, at);
  type.width = Digits(name.substr(at));
  if (letters == "u" || letters == "x" || letters == "i") {
    type.width /= 8;
    type.hex = letters == "x";
    type.is_signed = letters == "i";
    if (type.width >= 1 && type.width <= 8) return type;
  }
  const std::pair<std::string_view, Base> others[] = {
      {"addr", Base::kAddress}, {"hex", Base::kBytes}, {"text", Base::kText}, {"ad", Base::kAdvertising}};
  for (const auto& [word, base] : others) {
    if (letters != word) continue;
    type.base = base;
    if (base == Base::kAddress) type.width = 6;
    return type;
  }
  throw std::invalid_argument("no type: " + std::string(name));
}

FieldType TypeCalled(std::string_view name, const TypeTable& types) {
  const auto found = types.find(name);
  return found == types.end() ? BaseType(name) : found->second;
}

// One word of a line, taken apart from its front.
class Piece {
 public:
  explicit Piece(std::string_view text) : rest_(text) {}

  std::string_view Until(std::string_view ends) {
    const size_t at = std::min(rest_.find_first_of(ends), rest_.size());
    const std::string_view taken = rest_.substr(0, at);
    rest_.remove_prefix(at);
    return taken;
  }
  // The next character, 0 at the end.
  char Next() {
    if (rest_.empty()) return 0;
    const char next = rest_.front();
    rest_.remove_prefix(1);
    return next;
  }
  bool Take(char wanted) {
    if (!rest_.starts_with(wanted)) return false;
    rest_.remove_prefix(1);
    return true;
  }

 private:
  std::string_view rest_;
};

void ReadRange(Piece& piece, FieldType* type) {
  const std::string_view range = piece.Until(")");
  piece.Take(')');
  const size_t dots = range.find("..");
  if (dots == range.npos) throw std::invalid_argument("no range: " + std::string(range));
  type->least = Number(range.substr(0, dots));
  if (dots + 2 < range.size()) type->most = Number(range.substr(dots + 2));
}

void ReadUnit(Piece& piece, FieldType* type) {
  const std::string_view worth = piece.Until("@^=!?{");
  const auto [end, error] = std::from_chars(worth.data(), worth.data() + worth.size(), type->step);
  if (error != std::errc()) type->step = 1;
  type->unit = std::string(end, worth.data() + worth.size());
}

void ReadModifier(char modifier, Piece& piece, Field* field) {
  switch (modifier) {
    case '(':
      return ReadRange(piece, &field->type);
    case '*':
      return ReadUnit(piece, &field->type);
    case '@':
    case '^':
      field->counted = true;
      field->masked = modifier == '^';
      field->count = piece.Until("=!?{");
      return;
    case '=':
      field->fallback = piece.Until("!?{");
      return;
    case '!':
      field->type.in_line = piece.Take('!') ? InLine::kBare : InLine::kNamed;
      return;
    case '?':
      field->optional = true;
      return;
    case '{':
      field->type.base = Base::kElements;
      return;
    default:
      throw std::invalid_argument("no parameter");
  }
}

Field ReadField(const std::string& word, const TypeTable& types) {
  Field field;
  Piece piece(word);
  field.name = piece.Until(std::string(":") + kModifiers);
  std::string type = field.name;
  if (piece.Take(':')) type = piece.Until(kModifiers);
  if (!word.ends_with('{')) {
    field.type = TypeCalled(type, types);
    field.type.name = type;
  }
  while (const char modifier = piece.Next()) ReadModifier(modifier, piece, &field);
  return field;
}

using Word = std::vector<std::string>::const_iterator;

bool IsSection(const std::string& word) { return word == ">" || word == "<" || word == "~"; }

std::vector<Field> ReadFields(Word& at, Word end, const TypeTable& types) {
  std::vector<Field> fields;
  for (; at != end && !IsSection(*at) && *at != "}"; ++at) {
    fields.push_back(ReadField(*at, types));
    if (fields.back().type.base != Base::kElements) continue;
    fields.back().elements = ReadFields(++at, end, types);
    if (at == end || *at != "}") throw std::invalid_argument("no end of " + fields.back().name);
  }
  return fields;
}

std::vector<uint8_t> ReadCode(const std::string& text, bool command) {
  std::vector<uint8_t> code;
  for (const std::string& piece : ::android::base::Split(text, "/")) {
    const int64_t number = Number(piece);
    code.push_back(static_cast<uint8_t>(number));
    if (command) code.push_back(static_cast<uint8_t>(number >> 8));
  }
  return code;
}

std::string ReadWords(Word& at, Word end, std::vector<std::string>* in_brackets) {
  std::vector<std::string> words;
  for (; at != end && !IsSection(*at); ++at) {
    if (at->starts_with('(')) {
      in_brackets->push_back(at->substr(1, at->size() - 2));
    } else {
      words.push_back(*at);
    }
  }
  return ::android::base::Join(words, ' ');
}

Entry ReadEntry(const std::string& line, const TypeTable& types) {
  const std::vector<std::string> words = SplitWords(line);
  Entry entry;
  const bool command = words[0].size() == 6;  // 0x0C03
  entry.code = ReadCode(words[0], command);
  Word at = words.begin() + 1;
  entry.words = ReadWords(at, words.end(), &entry.other_names);
  const bool vendors = command && entry.opcode() >> 10 == kVendorGroup;
  entry.name = (vendors ? "vnd_" : "") + ScriptName(entry.words);
  // NOP is never sent: it is what a controller answers that only wants to say how many commands it takes.
  if (command && entry.opcode() != 0) entry.returns.push_back(ReadField("status", types));
  while (at != words.end()) {
    const std::string& section = *at++;
    if (section == "~") {
      entry.finishing_event = ReadWords(at, words.end(), &entry.other_names);
      continue;
    }
    std::vector<Field> fields = ReadFields(at, words.end(), types);
    std::vector<Field>& into = section == ">" ? entry.parameters : entry.returns;
    into.insert(into.end(), std::make_move_iterator(fields.begin()), std::make_move_iterator(fields.end()));
  }
  return entry;
}

// "0 off, 1 on"
std::vector<CodeWord> ReadCodeWords(const std::string& text) {
  std::vector<CodeWord> words;
  for (const std::string& piece : ::android::base::Split(text, ",")) {
    const std::string trimmed = ::android::base::Trim(piece);
    const size_t blank = trimmed.find(' ');
    if (blank == trimmed.npos) throw std::invalid_argument("no words for " + trimmed);
    words.push_back({static_cast<uint64_t>(Number(trimmed.substr(0, blank))),
                     ::android::base::Join(SplitWords(trimmed.substr(blank)), ' ')});
  }
  return words;
}

void ReadType(const std::string& line, TypeTable* types) {
  const size_t colon = line.find(": ");
  const std::vector<std::string> head = SplitWords(line.substr(0, colon));
  if (head.size() < 2) throw std::invalid_argument("no type");
  FieldType type = ReadField(head[0] + ":" + head[1], *types).type;
  type.bits |= head.size() > 2 && head[2] == "bits";
  if (colon != line.npos) {
    std::vector<CodeWord> words = ReadCodeWords(line.substr(colon + 1));
    if (type.words) words.insert(words.end(), type.words->begin(), type.words->end());
    type.words = std::make_shared<const std::vector<CodeWord>>(std::move(words));
  }
  types->emplace(head[0], std::move(type));
}

template <typename Read>
void ReadLines(std::string_view text, const Read& read) {
  for (const std::string& line : LogicalLines(text)) {
    try {
      read(line);
    } catch (const std::invalid_argument& error) {
      throw std::invalid_argument(std::string(error.what()) + " in dictionary line: " + line);
    }
  }
}

}  // namespace

void ReadTypes(std::string_view text, TypeTable* types) {
  ReadLines(text, [&](const std::string& line) { ReadType(line, types); });
}

void ReadEntries(std::string_view text, const TypeTable& types, std::vector<Entry>* entries) {
  ReadLines(text, [&](const std::string& line) { entries->push_back(ReadEntry(line, types)); });
}

}  // namespace bthal::tool
