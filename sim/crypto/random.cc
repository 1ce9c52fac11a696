#include "sim/crypto/random.h"

#include <random>

namespace bthal::sim {

Bytes RandomBytes(size_t size) {
  static auto& device = *new std::random_device;
  Bytes bytes;
  while (bytes.size() < size) Put32(bytes, device());
  bytes.resize(size);
  return bytes;
}

}  // namespace bthal::sim
