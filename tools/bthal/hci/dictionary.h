// The dictionary of HCI: every command, event and code that has a name here, with its parameters. Its text stands in
// dictionary/; this is how the rest of the program looks things up.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

// What one number, or one bit, is called.
struct CodeWord {
  uint64_t code = 0;
  std::string words;
};

// How a parameter lies on the wire, and how people write it.
struct FieldType {
  enum class Base { kNumber, kAddress, kBytes, kText, kAdvertising, kElements };
  enum class InLine { kNo, kNamed, kBare };  // whether a packet's one line shows it

  Base base = Base::kNumber;
  std::string name;
  size_t width = 0;  // bytes; 0: as many as are counted, or as are left
  bool hex = false;
  bool is_signed = false;
  bool bits = false;  // the words are those of bits
  std::optional<int64_t> least;
  std::optional<int64_t> most;
  double step = 1;   // what one step is worth,
  std::string unit;  // in this unit
  std::shared_ptr<const std::vector<CodeWord>> words;
  InLine in_line = InLine::kNo;
};

struct Field {
  std::string name;
  FieldType type;
  std::optional<std::string> fallback;
  bool counted = false;  // by the field called `count`, or, where that is empty, by what is left
  bool masked = false;   // one element for each bit set in `count`
  std::string count;
  std::vector<Field> elements;  // of each element, where the base is kElements
  bool optional = false;
};

struct Entry {
  std::vector<uint8_t> code;  // a command's opcode, least significant byte first; an event's code, and what follows it
  std::string words;          // "LE Set Scan Enable"
  std::string name;           // le_set_scan_enable
  std::vector<std::string> other_names;
  std::vector<Field> parameters;
  std::vector<Field> returns;   // a command's, status included
  std::string finishing_event;  // of a command that is answered by a Command Status

  uint16_t opcode() const { return static_cast<uint16_t>(code[0] | code[1] << 8); }
};

// All of it. What these return is static.
std::span<const Entry> CommandEntries();
std::span<const Entry> EventEntries();

// Null when there is none.
const Entry* FindCommand(std::string_view name);
const Entry* FindCommand(uint16_t opcode);
const FieldType* FindType(std::string_view name);

// The entries for an event packet, the one that knows most of it first: LE Advertising Report, then LE Meta.
std::vector<const Entry*> FindEvents(std::span<const uint8_t> event);

// Null when it has none.
const std::string* FindWords(const FieldType& type, uint64_t code);

// "Reset", or "opcode 0xFC99" where there is no name.
std::string OpcodeWords(uint16_t opcode);

// "LE Receiver Test [v2]" -> "le_receiver_test_v2": how a name is written on a command line.
std::string ScriptName(std::string_view words);

}  // namespace bthal::tool
