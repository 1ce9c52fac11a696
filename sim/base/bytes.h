// Little-endian bytes, and how numbers and addresses are written in texts for people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bthal::sim {

using Bytes = std::vector<uint8_t>;

inline uint16_t GetLe16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | at[1] << 8); }
inline uint32_t GetLe32(const uint8_t* at) { return GetLe16(at) | static_cast<uint32_t>(GetLe16(at + 2)) << 16; }

inline void Put8(Bytes& bytes, unsigned value) { bytes.push_back(static_cast<uint8_t>(value)); }
inline void Put16(Bytes& bytes, unsigned value) {
  Put8(bytes, value & 0xFF);
  Put8(bytes, value >> 8 & 0xFF);
}
inline void Put32(Bytes& bytes, uint32_t value) {
  Put16(bytes, value & 0xFFFF);
  Put16(bytes, value >> 16);
}
void PutAll(Bytes& bytes, const Bytes& more);
// The `size` bytes from `at` on, or what there is of them.
Bytes Part(const Bytes& bytes, size_t at, size_t size = SIZE_MAX);

// "0x0C03", with at least so many digits.
std::string Hex(uint64_t value, int digits);

// "AA:BB:CC:DD:EE:FF" into six bytes, least significant first; empty if the text is no address.
Bytes ParseAddress(const std::string& text);
std::string AddressText(const Bytes& address);

}  // namespace bthal::sim
