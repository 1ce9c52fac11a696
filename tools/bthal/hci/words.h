// HCI packets in words. Pure: bytes in, text out; what is not known here is shown in hex, never guessed.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bthal/hci/codes.h"

namespace bthal::tool {

// "command", "acl", "sco", "event", "iso", "thread", or "type 0x09".
std::string KindWord(uint8_t kind);

// "Command Complete", "LE Advertising Report", or nothing: the name of an event packet.
std::optional<std::string> EventName(std::span<const uint8_t> event);

// The opcode that a Command Complete or Command Status answers; nothing for any other event, or a cut one.
std::optional<uint16_t> AnsweredOpcode(std::span<const uint8_t> event);

// The status that an answer carries; nothing where there is none.
std::optional<uint8_t> AnsweredStatus(std::span<const uint8_t> event);

// The whole packet (without its H4 type byte) in one line; a malformed one says so in brackets.
std::string PacketWords(uint8_t kind, std::span<const uint8_t> packet);

// The same in `room` columns: the last parameters give way to "...". Name and status stay, if need be beyond `room`.
std::string FittingWords(uint8_t kind, std::span<const uint8_t> packet, size_t room);

// The connection handles in it, of data its own; a command's or an event's as many as it names.
std::vector<uint16_t> ConnectionHandles(uint8_t kind, std::span<const uint8_t> packet);

// Every field of it, one a line, those of elements set in.
std::vector<std::string> PacketFields(uint8_t kind, std::span<const uint8_t> packet);

// What is wrong with it: "the length says 4, 2 there". Empty where nothing is.
std::string PacketProblem(uint8_t kind, std::span<const uint8_t> packet);

}  // namespace bthal::tool
