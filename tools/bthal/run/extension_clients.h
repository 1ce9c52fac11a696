// Calls of the vendor extensions. Every failing call leaves one line in `error`.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

constexpr size_t kChannelMapSize = 10;
constexpr size_t kFinderKeySize = 20;
using ChannelMap = std::array<uint8_t, kChannelMapSize>;

bool SetChannelMap(const ChannelMap& map, std::string* error);
bool SendFinderKeys(const std::vector<uint8_t>& keys, std::string* error);
bool SetFinderMode(bool enable, std::string* error);

// 20 hex digits, first byte first; or nothing, with one line in `error`.
std::optional<ChannelMap> ParseChannelMap(std::string_view text, std::string* error);
// "0-10,37": every channel in use but these (0 to 78).
std::optional<ChannelMap> MapWithout(const std::string& channels, std::string* error);

// Whether the map leaves as many channels as a controller must be left with: it refuses fewer, and only the log of
// packets would show that.
bool LeavesEnoughChannels(const ChannelMap& map, std::string* error);

struct FinderFile {
  std::vector<uint8_t> keys;  // 20 bytes each
  std::optional<bool> enable;
};
// Lines: "mode on", "mode off", a key of 20 bytes in hex, "#" and a comment. Nothing, with the line in `error`,
// otherwise.
std::optional<FinderFile> ParseFinderFile(const std::string& content, std::string* error);

}  // namespace bthal::tool
