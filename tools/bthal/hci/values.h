// One parameter's value: as a person writes it, and as one reads it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bthal/hci/dictionary.h"

namespace bthal::tool {

// "active", "2", "0x0010", "10ms", "le_1m+le_2m"; a '!' in front lets it be outside the parameter's range. Nothing when
// it does not fit.
std::optional<uint64_t> ParseValue(const FieldType& type, std::string_view text);

// What a parameter takes: "2 bytes, 0x0004 to 0x4000 (2.5 ms to 10240 ms) in steps of 0.625 ms", "1 byte: 0=off, 1=on".
std::string TypeWords(const FieldType& type);

// `number` is sign-extended where the type is signed. Brief is for a line of many, without the number where words, or a
// unit, say it: "active", "10 ms"; else "active (1)", "16 (10 ms)".
std::string NumberText(const FieldType& type, uint64_t number, bool brief);

// "AA:BB:CC:DD:EE:FF" from six bytes, least significant first.
std::string AddressWords(std::span<const uint8_t> six_bytes);

// Text up to its first zero byte in quotes, with a dot for each byte that is no part of UTF-8 or that a terminal must
// not see.
std::string QuotedText(std::span<const uint8_t> bytes);

}  // namespace bthal::tool
