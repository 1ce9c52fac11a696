// Advertising data: length (1) | type (1) | value, repeated.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace bthal::tool {

// One line for each piece: "flags 06", "name "Thermometer"". Data that ends within a piece ends in a line that says so.
std::vector<std::string> AdvertisingLines(std::span<const uint8_t> data);

// The complete or shortened local name in quotes, empty if there is none.
std::string AdvertisedName(std::span<const uint8_t> data);

}  // namespace bthal::tool
