// HCI packets in words. Pure: bytes in, text out; what is not known here is shown in hex, never guessed.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "bthal/hci/codes.h"

namespace bthal::tool {

// "command", "acl", "sco", "event", "iso", "thread", or "type 0x09".
std::string KindWord(uint8_t kind);

// "success", "command disallowed (0x0C)", "status 0x77".
std::string StatusWords(uint8_t status);

// "AA:BB:CC:DD:EE:FF" from six bytes, least significant first.
std::string AddressWords(std::span<const uint8_t> six_bytes);

// "Command Complete", "LE Advertising Report", or nothing: the name of an event packet.
std::optional<std::string> EventName(std::span<const uint8_t> event);

// The opcode that a Command Complete or Command Status answers; nothing for any other event, or a cut one.
std::optional<uint16_t> AnsweredOpcode(std::span<const uint8_t> event);

// The status that an answer carries; nothing where there is none.
std::optional<uint8_t> AnsweredStatus(std::span<const uint8_t> event);

// The whole packet (without its H4 type byte) in one line.
std::string PacketWords(uint8_t kind, std::span<const uint8_t> packet);

// "LE Advertising Report" -> "le_advertising_report": how a script writes a name.
std::string ScriptName(std::string_view words);

}  // namespace bthal::tool
