#include "sim/wire/h4.h"

#include <algorithm>
#include <cstddef>

namespace bthal::sim {

//            byte 0      1         2         3
//   command | opcode            | length  |
//   ACL     | handle, flags     | length            |
//   SCO     | handle, flags     | length  |
//   event   | code     | length |
//   ISO     | handle, flags     | length, 14 bits   |
//   Thread  | zero              | length            |
size_t H4PacketSize(uint8_t type, const Bytes& start) {
  constexpr size_t kIsoLengthMask = 0x3FFF;
  switch (type) {
    case kH4Command:
    case kH4Sco:
      return start.size() < 3 ? 0 : 3u + start[2];
    case kH4Event:
      return start.size() < 2 ? 0 : 2u + start[1];
    case kH4Acl:
    case kH4Thread:
      return start.size() < 4 ? 0 : 4u + GetLe16(&start[2]);
    case kH4Iso:
      return start.size() < 4 ? 0 : 4u + (GetLe16(&start[2]) & kIsoLengthMask);
    default:
      return 0;
  }
}

bool IsHostPacketType(uint8_t type) {
  return type == kH4Command || type == kH4Acl || type == kH4Sco || type == kH4Iso || type == kH4Thread;
}

void H4Decoder::Reset() {
  type_ = 0;
  packet_.clear();
}

int H4Decoder::Feed(const Bytes& bytes, const OnPacket& on_packet) {
  for (size_t at = 0; at < bytes.size();) {
    if (type_ == 0) {
      const uint8_t type = bytes[at++];
      if (!IsHostPacketType(type)) return type;
      type_ = type;
      continue;
    }
    const size_t size = H4PacketSize(type_, packet_);
    const size_t wanted = size == 0 ? 1 : size - packet_.size();
    const size_t count = std::min(wanted, bytes.size() - at);
    packet_.insert(packet_.end(), bytes.begin() + static_cast<ptrdiff_t>(at),
                   bytes.begin() + static_cast<ptrdiff_t>(at + count));
    at += count;
    if (packet_.size() == H4PacketSize(type_, packet_)) {
      // Out of our hands first: what the packet causes may well reset us.
      const uint8_t type = type_;
      const Bytes packet = std::move(packet_);
      Reset();
      on_packet(type, packet);
    }
  }
  return -1;
}

}  // namespace bthal::sim
