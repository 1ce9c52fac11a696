#include "support/h4_stream.h"

#include <algorithm>

namespace bthal::test {
namespace {

uint8_t Low(size_t value) { return static_cast<uint8_t>(value); }
uint8_t High(size_t value) { return static_cast<uint8_t>(value >> 8); }

}  // namespace

Bytes MakePacket(uint8_t type, size_t payload, uint8_t fill) {
  Bytes packet;
  switch (type) {
    case 0x04:
      payload = std::min<size_t>(payload, 0xFF);
      packet = {0x3E, Low(payload)};
      break;
    case 0x03:
      payload = std::min<size_t>(payload, 0xFF);
      packet = {0x01, 0x10, Low(payload)};
      break;
    case 0x05:  // the two bits above the length say something else
      payload = std::min<size_t>(payload, 0x3FFF);
      packet = {0x02, 0x20, Low(payload), static_cast<uint8_t>(High(payload) | 0xC0)};
      break;
    default:
      payload = std::min<size_t>(payload, 0xFFFF);
      packet = {0x40, 0x20, Low(payload), High(payload)};
  }
  for (size_t i = 0; i < payload; ++i) packet.push_back(static_cast<uint8_t>(fill + i));
  return packet;
}

Bytes RandomPacket(uint8_t type, std::mt19937& random) {
  constexpr size_t kLimits[] = {1, 4, 70, 300, 2000, 0x10000};
  const size_t limit = kLimits[random() % std::size(kLimits)];
  return MakePacket(type, random() % limit, static_cast<uint8_t>(random()));
}

void AppendH4(Bytes& stream, uint8_t type, const Bytes& packet) {
  stream.push_back(type);
  stream.insert(stream.end(), packet.begin(), packet.end());
}

std::vector<Bytes> RandomPieces(const Bytes& whole, size_t largest, std::mt19937& random) {
  std::vector<Bytes> pieces;
  for (size_t offset = 0; offset < whole.size(); offset += pieces.back().size()) {
    const size_t size = std::min(1 + random() % largest, whole.size() - offset);
    Bytes piece(whole.begin() + offset, whole.begin() + offset + size);
    piece.shrink_to_fit();
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

}  // namespace bthal::test
