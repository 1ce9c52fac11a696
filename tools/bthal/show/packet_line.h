// How every subcommand shows a packet: direction, kind, words and bytes, in the same columns.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace bthal::tool {

enum class Direction { kToController, kFromController };

// What is shown of a packet besides its line, and where.
struct PacketView {
  bool fields = false;   // every field, one a line
  bool bytes = false;    // all bytes, below the line where they do not fit it
  bool to_file = false;  // as wide as it is, whatever the terminal
};

// "< command  Reset                                     03 0C 00": "<" to the controller, ">" from it, behind `time`.
// All lines with their ends. On a terminal the first is as wide as that: what does not fit goes, bytes first, then the
// last parameters; direction, name and status always stay, if need be in a second line. Elsewhere everything is in it.
// Coloured where terminal.h says so.
std::string PacketText(const PacketView& view, const std::string& time, Direction direction, uint8_t kind,
                       std::span<const uint8_t> packet);

// All its bytes, set in below its line, sixteen a line.
std::string HexLines(std::span<const uint8_t> packet);

// Every field of it, one a line, set in below its line.
std::string FieldLines(uint8_t kind, std::span<const uint8_t> packet);

}  // namespace bthal::tool
