// Where packets begin and end: the header of each kind, without H4 type byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace bthal::tool {

// 0 for a kind that there is not.
size_t HeaderSize(uint8_t kind);

// How many bytes should follow a whole header.
size_t SaidLength(uint8_t kind, std::span<const uint8_t> packet);

// "cut in its header: 3 bytes needed, 1 there", "the length says 4, 2 there"; empty where it is whole.
std::string FramingProblem(uint8_t kind, std::span<const uint8_t> packet);

}  // namespace bthal::tool
