#include "bthal/hci/dictionary.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cctype>
#include <unordered_map>

#include "bthal/hci/dictionary/tables.h"
#include "bthal/hci/table_reader.h"

namespace bthal::tool {
namespace {

struct Dictionary {
  Dictionary() {
    for (const char* text : {kStatusCodes, kTypes}) ReadTypes(text, &types);
    for (const char* text :
         {kLinkControl, kLinkPolicy, kBaseband, kInformational, kLeCommands, kLeExtendedCommands, kVendorCommands}) {
      ReadEntries(text, types, &commands);
    }
    for (const char* text : {kEvents, kLeEvents, kVendorEvents}) ReadEntries(text, types, &events);
    for (const Entry& command : commands) {
      by_opcode.emplace(command.opcode(), &command);
      // A name of the standard's goes before what others call something else.
      by_name[command.name] = &command;
      for (const std::string& name : command.other_names) by_name.emplace(name, &command);
    }
  }

  TypeTable types;
  std::vector<Entry> commands;
  std::vector<Entry> events;
  std::unordered_map<uint16_t, const Entry*> by_opcode;
  std::unordered_map<std::string_view, const Entry*> by_name;
};

// Never destroyed: packets are put into words until the process ends.
const Dictionary& TheDictionary() {
  static const auto& dictionary = *new Dictionary;
  return dictionary;
}

template <typename Map, typename Key>
const Entry* FindIn(const Map& map, const Key& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : found->second;
}

}  // namespace

std::span<const Entry> CommandEntries() { return TheDictionary().commands; }
std::span<const Entry> EventEntries() { return TheDictionary().events; }

const Entry* FindCommand(std::string_view name) { return FindIn(TheDictionary().by_name, name); }
const Entry* FindCommand(uint16_t opcode) { return FindIn(TheDictionary().by_opcode, opcode); }

const FieldType* FindType(std::string_view name) {
  const auto found = TheDictionary().types.find(name);
  return found == TheDictionary().types.end() ? nullptr : &found->second;
}

std::vector<const Entry*> FindEvents(std::span<const uint8_t> event) {
  std::vector<const Entry*> found;
  if (event.empty()) return found;
  // The code, and the parameters behind the length.
  std::vector<uint8_t> start = {event[0]};
  if (event.size() > 2) start.insert(start.end(), event.begin() + 2, event.end());
  for (const Entry& entry : EventEntries()) {
    const auto differ = std::ranges::mismatch(entry.code, start);
    if (differ.in1 == entry.code.end()) found.push_back(&entry);
  }
  std::ranges::sort(found, std::ranges::greater(), [](const Entry* entry) { return entry->code.size(); });
  return found;
}

const std::string* FindWords(const FieldType& type, uint64_t code) {
  if (!type.words) return nullptr;
  const auto found = std::ranges::find(*type.words, code, &CodeWord::code);
  return found == type.words->end() ? nullptr : &found->words;
}

std::string OpcodeWords(uint16_t opcode) {
  const Entry* command = FindCommand(opcode);
  return command != nullptr ? command->words : ::android::base::StringPrintf("opcode 0x%04X", opcode);
}

std::string ScriptName(std::string_view words) {
  std::string name;
  for (const char c : words) {
    if (std::isalnum(static_cast<unsigned char>(c))) {
      name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else if (!name.empty() && name.back() != '_') {
      name += '_';
    }
  }
  if (name.ends_with('_')) name.pop_back();
  return name;
}

}  // namespace bthal::tool
