// What bytes are that nobody has named.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace bthal::tool {

struct ToldPacket {
  uint8_t kind = 0;
  std::span<const uint8_t> bytes;  // without type byte; those that were given
};

// The first of these that is so: a packet behind its H4 type byte with nothing wrong; an event, or a command, that has
// a name and nothing wrong; something behind a type byte; whatever has a name; whatever is whole. Else nothing.
std::optional<ToldPacket> TellPacket(std::span<const uint8_t> bytes);

}  // namespace bthal::tool
