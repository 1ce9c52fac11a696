#include "sim/bytes.h"

#include <cstdio>

namespace bthal::sim {

void PutAll(Bytes& bytes, const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

std::string Hex(uint64_t value, int digits) {
  char text[32];
  snprintf(text, sizeof(text), "0x%0*llX", digits, static_cast<unsigned long long>(value));
  return text;
}

}  // namespace bthal::sim
