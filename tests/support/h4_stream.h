// Streams of whole H4 packets, made up at random, and pieces of them.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace bthal::test {

using Bytes = std::vector<uint8_t>;

// The types a controller sends.
inline constexpr uint8_t kH4ReceivedTypes[] = {0x02, 0x03, 0x04, 0x05, 0x70};

// One packet behind its type byte: header, and `payload` bytes (cut to what the type can say) that count up from
// `fill`.
Bytes MakePacket(uint8_t type, size_t payload, uint8_t fill);

// A packet of any type and of any size, often an empty or a short one.
Bytes RandomPacket(uint8_t type, std::mt19937& random);

// The type byte and the packet.
void AppendH4(Bytes& stream, uint8_t type, const Bytes& packet);

// `whole`, cut at random. Each piece is a buffer of exactly its size, so that a sanitizer sees a step beyond it.
std::vector<Bytes> RandomPieces(const Bytes& whole, size_t largest, std::mt19937& random);

}  // namespace bthal::test
