#include "sim/base/bytes.h"

#include <algorithm>
#include <cstdio>

namespace bthal::sim {

void PutAll(Bytes& bytes, const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

Bytes Part(const Bytes& bytes, size_t at, size_t size) {
  const size_t begin = std::min(at, bytes.size());
  const size_t count = std::min(size, bytes.size() - begin);
  return {bytes.data() + begin, bytes.data() + begin + count};
}

std::string Hex(uint64_t value, int digits) {
  char text[32];
  snprintf(text, sizeof(text), "0x%0*llX", digits, static_cast<unsigned long long>(value));
  return text;
}

Bytes ParseAddress(const std::string& text) {
  unsigned part[6];
  char rest = 0;
  if (sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &part[0], &part[1], &part[2], &part[3], &part[4], &part[5],
             &rest) != 6) {
    return {};
  }
  Bytes address;
  for (const unsigned byte : part) Put8(address, byte);
  std::reverse(address.begin(), address.end());
  return address;
}

std::string AddressText(const Bytes& address) {
  char text[18];
  snprintf(text, sizeof(text), "%02X:%02X:%02X:%02X:%02X:%02X", address[5], address[4], address[3], address[2],
           address[1], address[0]);
  return text;
}

}  // namespace bthal::sim
