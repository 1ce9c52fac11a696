// Events in words: the half of hci_words.h that knows events.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace bthal::tool {

// A whole event packet, header included, in one line.
std::string EventWords(std::span<const uint8_t> event);

}  // namespace bthal::tool
