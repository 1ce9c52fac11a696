// Data packets in words. words.h asks here for whatever is neither command nor event.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace bthal::tool {

std::string DataWords(uint8_t kind, std::span<const uint8_t> packet);
std::vector<std::string> DataFields(uint8_t kind, std::span<const uint8_t> packet);

// "name                                  text": one line of a packet's fields.
std::string FieldLine(int depth, const std::string& name, const std::string& text);

}  // namespace bthal::tool
