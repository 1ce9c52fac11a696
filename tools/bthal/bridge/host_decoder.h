// What a host stack says: H4 packets of the kinds that hosts send, in a stream.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace bthal::tool {

// Commands, ACL, SCO and ISO data. Thread frames and vendor packets are none of a host's.
bool HostSends(uint8_t kind);

// Used on one thread.
class HostDecoder {
 public:
  // A whole packet without its type byte, valid during the call.
  using OnPacket = std::function<void(uint8_t kind, std::span<const uint8_t> packet)>;

  explicit HostDecoder(OnPacket on_packet) : on_packet_(std::move(on_packet)) {}

  // Calls for every packet that is whole with these bytes, and keeps what is left for the next time: never more than
  // the largest packet and one call's bytes. False at a type that no host sends: where the next packet begins is then
  // unknown for good.
  bool Decode(std::span<const uint8_t> bytes);

  // The type that made Decode fail.
  uint8_t bad_type() const { return bad_type_; }
  // Bytes of a packet that is not whole yet.
  size_t pending() const { return pending_.size(); }

 private:
  const OnPacket on_packet_;
  std::vector<uint8_t> pending_;
  uint8_t bad_type_ = 0;
};

}  // namespace bthal::tool
