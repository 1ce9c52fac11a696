// Streams of whole H4 packets, made up at random, and pieces of them.
#pragma once

#include <random>

#include "h4/h4_packetizer.h"
#include "support/test.h"

namespace bthal::test {

// The types a controller sends.
inline constexpr uint8_t kH4ReceivedTypes[] = {0x02, 0x03, 0x04, 0x05, 0x70};

// One packet behind its type byte: header, and `payload` bytes (cut to what the type can say) that count up from
// `fill`.
inline Bytes MakePacket(uint8_t type, size_t payload, uint8_t fill) {
  const bool short_length = type == 0x03 || type == 0x04;
  payload = std::min<size_t>(payload, short_length ? 0xFF : type == 0x05 ? 0x3FFF : 0xFFFF);
  const auto low = static_cast<uint8_t>(payload), high = static_cast<uint8_t>(payload >> 8);
  Bytes packet = {0x40, 0x20, low, high};
  if (type == 0x03) packet = {0x01, 0x10, low};
  if (type == 0x04) packet = {0x3E, low};
  if (type == 0x05) packet[3] |= 0xC0;  // the two bits above the length say something else
  for (size_t i = 0; i < payload; ++i) packet.push_back(static_cast<uint8_t>(fill + i));
  return packet;
}

// A packet of any type and of any size, often an empty or a short one.
inline Bytes RandomPacket(uint8_t type, std::mt19937& random) {
  constexpr size_t kLimits[] = {1, 4, 70, 300, 2000, 0x10000};
  const size_t limit = kLimits[random() % std::size(kLimits)];
  return MakePacket(type, random() % limit, static_cast<uint8_t>(random()));
}

// The type byte and the packet.
inline void AppendH4(Bytes& stream, uint8_t type, const Bytes& packet) {
  stream.push_back(type);
  stream.insert(stream.end(), packet.begin(), packet.end());
}

// `bytes`, and behind them what the receiving side may copy but never looks at.
inline Bytes WithReadAhead(Bytes bytes) {
  bytes.resize(bytes.size() + ::android::hardware::bluetooth::hci::HciPacketizer::kReadAhead, 0xA5);
  return bytes;
}

// `whole`, cut at random. Each piece is a buffer of exactly its size, so that a sanitizer sees a step beyond it.
inline std::vector<Bytes> RandomPieces(const Bytes& whole, size_t largest, std::mt19937& random) {
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
