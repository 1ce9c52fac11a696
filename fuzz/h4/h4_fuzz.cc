// The receive path: whatever a stream holds and wherever it is cut, packets that come whole, in pieces and byte by byte
// are the same packets, and they are those that the stream spells.
//
// Input:  seed of the cuts (1) | largest piece, 0 for 256 (1) | the stream
#include <cstdint>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

#include "h4/h4_packetizer.h"
#include "h4/h4_protocol.h"

namespace {

using android::hardware::bluetooth::hci::H4Protocol;
using android::hardware::bluetooth::hci::HciPacket;
using android::hardware::bluetooth::hci::HciPacketCallback;
using android::hardware::bluetooth::hci::HciPacketizer;
using android::hardware::bluetooth::hci::HciPacketType;

using Bytes = std::vector<uint8_t>;
using Packets = std::vector<std::pair<uint8_t, Bytes>>;

constexpr uint8_t kTypes[] = {0x02, 0x03, 0x04, 0x05, 0x70};

bool Carries(uint8_t type) { return (type >= 0x02 && type <= 0x05) || type == 0x70; }

size_t HeaderSize(uint8_t type) { return type == 0x04 ? 2 : type == 0x03 ? 3 : 4; }

size_t PayloadSize(uint8_t type, const uint8_t* header) {
  if (type == 0x04) return header[1];
  if (type == 0x03) return header[2];
  return header[2] + 256u * (type == 0x05 ? header[3] % 64 : header[3]);
}

// Makes every type byte one that a controller sends (any other ends the process), and lists the packets behind them.
// One without payload at the very end stays with the parser.
Packets Spell(Bytes& stream) {
  Packets packets;
  size_t at = 0;
  while (at < stream.size()) {
    if (!Carries(stream[at])) stream[at] = kTypes[stream[at] % std::size(kTypes)];
    const uint8_t type = stream[at++];
    const size_t header = HeaderSize(type);
    if (stream.size() - at < header) break;
    const size_t payload = PayloadSize(type, &stream[at]);
    const size_t left = stream.size() - at - header;
    if (left < payload || (left == 0 && payload == 0)) break;
    packets.emplace_back(type, Bytes(stream.begin() + at, stream.begin() + at + header + payload));
    at += header + payload;
  }
  return packets;
}

struct Reader {
  HciPacketCallback To(uint8_t type) {
    return [this, type](const HciPacket& packet) { packets.emplace_back(type, packet); };
  }

  // Each piece lies in memory of its own size, so that a step beyond what may be copied is seen; and what may be copied
  // is none of the stream.
  void Read(const uint8_t* data, size_t size) {
    Bytes piece(data, data + size);
    piece.resize(size + HciPacketizer::kReadAhead, 0xA5);
    h4.OnBytes(piece.data(), size);
  }

  Packets packets;
  H4Protocol h4{-1, {To(0x04), To(0x02), To(0x03), To(0x05), To(0x70)}, {}};
};

void Check(bool holds) {
  if (!holds) abort();
}

void CheckCut(const Bytes& stream, const Packets& expected, size_t largest, uint32_t seed) {
  std::minstd_rand random(seed);
  Reader reader;
  for (size_t at = 0; at < stream.size();) {
    const size_t size = std::min<size_t>(1 + random() % largest, stream.size() - at);
    reader.Read(&stream[at], size);
    at += size;
  }
  Check(reader.packets == expected);
}

// The packetizer alone, with a type that may be none, never takes more than there is and never stands still.
void CheckContract(uint8_t type, const Bytes& stream) {
  size_t completed = 0;
  HciPacketizer packetizer([&] { ++completed; });
  Bytes readable = stream;
  readable.resize(stream.size() + HciPacketizer::kReadAhead, 0xA5);
  size_t at = 0;
  while (at < stream.size()) {
    const size_t completed_before = completed;
    const size_t taken = packetizer.OnDataReady(static_cast<HciPacketType>(type), &readable[at], stream.size() - at);
    Check(taken <= stream.size() - at && (taken != 0 || completed != completed_before));
    at += taken;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const uint8_t seed = data[0];
  const size_t largest = data[1] == 0 ? 256 : data[1];
  Bytes stream(data + 2, data + size);
  CheckContract(seed, stream);
  const Packets expected = Spell(stream);
  CheckCut(stream, expected, 1, seed);
  CheckCut(stream, expected, largest, seed);
  CheckCut(stream, expected, stream.size(), seed);
  Reader whole;
  whole.Read(stream.data(), stream.size());
  Check(whole.packets == expected);
  return 0;
}
