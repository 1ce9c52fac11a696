// How every subcommand shows a packet: direction, kind, words and bytes, in the same columns.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace bthal::tool {

enum class Direction { kToController, kFromController };

// "> command  Reset                                     03 0C 00": ">" to the controller, "<" from it. Behind
// `columns_before` columns it fits the terminal where the words allow it; long packets are cut and counted. Coloured
// where terminal.h says so.
std::string PacketLine(Direction direction, uint8_t kind, std::span<const uint8_t> packet, size_t columns_before = 10);

// Every field of it, one a line, set in below its line.
std::string FieldLines(uint8_t kind, std::span<const uint8_t> packet);

}  // namespace bthal::tool
