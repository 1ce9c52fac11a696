// The commands that have a name here: what they are called, and how their parameters are written.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

struct NamedCommand {
  const char* name;  // as typed: le_scan_enable
  uint16_t opcode;
  const char* words;  // as read: LE Set Scan Enable
  // One "name:size" or "name:size=default" for each parameter, separated by spaces. Sizes: 1 to 4 (a number of so many
  // bytes, little-endian), "addr" (AA:BB:CC:DD:EE:FF, least significant byte first on the wire), "hex" (bytes as they
  // are, to the end), "hexN" (bytes, filled up with zeros to N).
  const char* parameters;
};

// All of them, in the order in which help lists them. Static.
std::span<const NamedCommand> NamedCommands();

// Null when there is none.
const NamedCommand* FindCommand(std::string_view name);
const NamedCommand* FindCommand(uint16_t opcode);

// "Reset", or "opcode 0xFC99" where there is no name.
std::string OpcodeWords(uint16_t opcode);

// The whole HCI command packet, without H4 type byte. Nothing, with one line in `error`, when `arguments` do not fit.
std::optional<std::vector<uint8_t>> BuildCommand(const NamedCommand& command, std::span<const std::string> arguments,
                                                 std::string* error);

// How to write it: "le_scan_enable [enable=1] [filter_duplicates=0]".
std::string Usage(const NamedCommand& command);

}  // namespace bthal::tool
