// Cuts what the host sends into packets.
#pragma once

#include <functional>

#include "sim/base/bytes.h"

namespace bthal::sim {

// H4 packet types, as the controller knows them.
inline constexpr uint8_t kH4Command = 0x01;
inline constexpr uint8_t kH4Acl = 0x02;
inline constexpr uint8_t kH4Sco = 0x03;
inline constexpr uint8_t kH4Event = 0x04;
inline constexpr uint8_t kH4Iso = 0x05;
inline constexpr uint8_t kH4Thread = 0x70;

// Pure: bytes in, packets out. Only the types a host may send are known.
class H4Decoder {
 public:
  using OnPacket = std::function<void(uint8_t type, const Bytes& packet)>;

  // Calls `on_packet` for each packet that these bytes complete. At a byte that no packet begins with, the rest of
  // `bytes` is given up and that byte returned; otherwise -1.
  int Feed(const Bytes& bytes, const OnPacket& on_packet);
  // Forgets a packet begun.
  void Reset();

 private:
  uint8_t type_ = 0;  // 0 between packets
  Bytes packet_;
};

// The size of the whole packet without its type byte, from its first bytes; 0 while there are too few of them to tell.
size_t H4PacketSize(uint8_t type, const Bytes& start);
// Whether a packet of this type may travel in that direction.
bool IsHostPacketType(uint8_t type);

}  // namespace bthal::sim
