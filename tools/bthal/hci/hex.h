// Bytes as people write and read them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

// "01 03 0C 00". More than `limit` bytes are cut off and counted: "01 03 ... (+240)". 0: no limit.
std::string Hex(std::span<const uint8_t> bytes, size_t limit = 0);

// Pairs of hex digits; spaces, colons and a leading "0x" are skipped. Nothing when a pair is broken or something else
// is found.
std::optional<std::vector<uint8_t>> ParseHex(std::string_view text);

// A whole number from 0 to `max`, decimal or with "0x" in hex. Nothing when `text` is anything else.
std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t max);

// A span of time from 0 to one day, in seconds, whole or with decimals. Nothing when `text` is anything else.
std::optional<double> ParseSeconds(std::string_view text);

}  // namespace bthal::tool
