// What a host stack may send to the bridge: whatever it is and wherever it is cut, only whole packets of a host's kinds
// come out, they are those that the stream spells, and what follows a stranger is never looked at.
//
// Input:  seed of the cuts (1) | largest piece, 0 for 256 (1) | the stream
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

#include "bthal/bridge/host_decoder.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Packets = std::vector<std::pair<uint8_t, Bytes>>;

struct Spelt {
  Packets packets;
  bool stranger = false;
};

// Command:    opcode (2) | length (1) | ...      SCO:  handle (2) | length (1) | ...
// ACL:        handle (2) | length (2) | ...      ISO:  handle (2) | length (14 bits) | ...
Spelt Spell(const Bytes& stream) {
  Spelt spelt;
  size_t at = 0;
  while (at < stream.size()) {
    const uint8_t kind = stream[at];
    if (kind != 1 && kind != 2 && kind != 3 && kind != 5) {
      spelt.stranger = true;
      break;
    }
    const size_t header = kind == 1 || kind == 3 ? 3 : 4;
    if (stream.size() - at - 1 < header) break;
    size_t length = stream[at + 3];
    if (kind == 2) length += 256u * stream[at + 4];
    if (kind == 5) length += 256u * (stream[at + 4] % 64);
    if (stream.size() - at - 1 - header < length) break;
    const auto begin = stream.begin() + static_cast<ptrdiff_t>(at) + 1;
    spelt.packets.emplace_back(kind, Bytes(begin, begin + static_cast<ptrdiff_t>(header + length)));
    at += 1 + header + length;
  }
  return spelt;
}

void Check(bool holds) {
  if (!holds) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  std::minstd_rand random(data[0]);
  const size_t largest = data[1] == 0 ? 256 : data[1];
  const Bytes stream(data + 2, data + size);
  Packets got;
  bthal::tool::HostDecoder decoder([&](uint8_t kind, std::span<const uint8_t> packet) {
    got.emplace_back(kind, Bytes(packet.begin(), packet.end()));
  });
  bool stranger = false;
  for (size_t at = 0; at < stream.size() && !stranger;) {
    const size_t count = std::min<size_t>(1 + random() % largest, stream.size() - at);
    // In memory of its own size, so that a step beyond it is seen.
    const Bytes piece(stream.begin() + static_cast<ptrdiff_t>(at), stream.begin() + static_cast<ptrdiff_t>(at + count));
    stranger = !decoder.Decode(piece);
    at += count;
  }
  const Spelt spelt = Spell(stream);
  Check(got == spelt.packets);
  Check(stranger == spelt.stranger);
  return 0;
}
