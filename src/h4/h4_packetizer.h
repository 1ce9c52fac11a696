// Cuts a run of received bytes into whole HCI packets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "h4/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// A pure decoder: bytes in, packets out, no I/O and no lock. It is told the type of the packet in progress and never
// consumes a byte beyond the end of the header or payload it is working on. A stream that loses sync stays out of sync
// until the owner is destroyed. Used on one thread only.
class HciPacketizer {
 public:
  using HciPacketReadyCallback = std::function<void()>;

  // `packet_ready_cb` is called once for every whole packet, from inside OnDataReady or FrameInPlace.
  explicit HciPacketizer(HciPacketReadyCallback packet_ready_cb);

  // Takes what it needs of `buffer` to finish the current header or the current payload and returns that count (0 to
  // `length`); the caller calls again with the rest. A packet without payload completes on the next call, which consumes
  // nothing. A type outside the H4 codes that carry data swallows all bytes and counts them (see DroppedBytes).
  size_t OnDataReady(HciPacketType type, const uint8_t* buffer, const size_t& length);

  // The short cut for the usual case: between packets, and with a whole packet in `buffer` (and a byte behind it, should
  // it have no payload), delivers that packet without copying it and returns its size. Returns 0 and does nothing in
  // every other case.
  size_t FrameInPlace(HciPacketType type, const uint8_t* buffer, size_t length);

  // The packet just completed. Valid inside `packet_ready_cb` only: it may lend the caller's buffer.
  const HciPacket& GetPacket() const;

  // Bytes swallowed because their type cannot be framed.
  uint64_t DroppedBytes() const;

 private:
  enum class State { kPreamble = 0, kPayload = 1 };

  State state_ = State::kPreamble;
  std::array<uint8_t, 4> preamble_{};
  HciPacket packet_;
  uint64_t bytes_remaining_ = 0;
  uint64_t bytes_read_ = 0;
  HciPacketReadyCallback packet_ready_cb_;
  uint64_t dropped_bytes_ = 0;
};

}  // namespace android::hardware::bluetooth::hci
