// Cuts a run of received bytes into whole HCI packets.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>

#include "h4/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// A pure decoder: bytes in, packets out, no I/O and no lock. It is told the type of the packet in progress and never
// consumes a byte beyond the end of the header or payload it is working on. A stream that loses sync stays out of sync
// until the owner is destroyed. Used on one thread only.
//
// What follows the type byte, by type (the length is that of the payload):
//   event         code (1) | length (1) | payload
//   command       opcode (2) | length (1) | payload
//   SCO           handle (2) | length (1) | payload
//   ACL, Thread   handle or zero (2) | length (2) | payload
//   ISO           handle (2) | length (14 bits), the two bits above are not part of it | payload
//
// The functions that see every byte stand below, inline: with received bytes trickling in they are called once a byte.
class HciPacketizer {
 public:
  using HciPacketReadyCallback = std::function<void()>;

  // `packet_ready_cb` is called once for every packet that OnDataReady completes, from inside it. All memory that
  // framing ever needs is taken here.
  explicit HciPacketizer(HciPacketReadyCallback packet_ready_cb);

  // Takes what it needs of `buffer` to finish the current header or the current payload and returns that count (0 to
  // `length`); the caller calls again with the rest. A packet without payload completes on the next call, which
  // consumes nothing. A type that cannot be framed swallows all bytes and counts them (see DroppedBytes).
  size_t OnDataReady(HciPacketType type, const uint8_t* buffer, const size_t& length);

  // The short cut for the usual case: between packets, and with a whole packet at the start of `buffer` (and a byte
  // behind it, should it have no payload), lends that packet to GetPacket without copying it and returns its size;
  // handing it on is the caller's, no callback is made. Returns 0 and does nothing in every other case.
  size_t FrameInPlace(HciPacketType type, const uint8_t* buffer, size_t length);

  // The packet just completed. It lends its bytes: valid inside `packet_ready_cb`, or after FrameInPlace for as long as
  // the buffer given to it is.
  const HciPacket& GetPacket() const { return packet_; }

  // Bytes swallowed because their type cannot be framed.
  uint64_t DroppedBytes() const { return dropped_bytes_; }

 private:
  enum class State { kPreamble = 0, kPayload = 1 };

  static constexpr size_t kLargestHeaderSize = 4;
  static constexpr size_t kLargestPayloadSize = 0xFFFF;
  static constexpr uint8_t kIsoLengthHighByteMask = 0x3F;

  static size_t HeaderSize(HciPacketType type);
  static size_t PayloadSize(HciPacketType type, const uint8_t* header);

  size_t GatherHeader(HciPacketType type, size_t header_size, const uint8_t* buffer, size_t length);
  size_t GatherPayload(const uint8_t* buffer, size_t length);
  void Gather(const uint8_t* bytes, size_t count);

  State state_ = State::kPreamble;
  uint64_t bytes_read_ = 0;       // header and payload bytes gathered so far
  uint64_t bytes_remaining_ = 0;  // payload bytes still missing
  // A packet that does not lie whole in one read is put together here. One buffer for the largest packet, for good:
  // packets that come in pieces neither allocate nor let memory grow.
  std::unique_ptr<uint8_t[]> gathered_;
  HciPacket packet_;
  HciPacketReadyCallback packet_ready_cb_;
  uint64_t dropped_bytes_ = 0;
};

// Both lookups are branches and not tables on purpose. The type of the next packet is well predicted, whereas a table
// would put two more loads between a packet and the place where its successor starts.
inline size_t HciPacketizer::HeaderSize(HciPacketType type) {
  if (type == HciPacketType::kEvent) return 2;
  if (type == HciPacketType::kAclData || type == HciPacketType::kIsoData || type == HciPacketType::kThreadData)
    return 4;
  if (type == HciPacketType::kScoData || type == HciPacketType::kCommand) return 3;
  return 0;
}

inline size_t HciPacketizer::PayloadSize(HciPacketType type, const uint8_t* header) {
  if (type == HciPacketType::kEvent) return header[1];
  if (type == HciPacketType::kAclData || type == HciPacketType::kThreadData) return header[2] | header[3] << 8;
  if (type == HciPacketType::kIsoData) return header[2] | (header[3] & kIsoLengthHighByteMask) << 8;
  return header[2];
}

inline void HciPacketizer::Gather(const uint8_t* bytes, size_t count) {
  // Bytes that come one by one would spend most of their time on the way into memcpy and back.
  if (count == 1) {
    gathered_[bytes_read_] = *bytes;
  } else {
    std::memcpy(gathered_.get() + bytes_read_, bytes, count);
  }
  bytes_read_ += count;
}

inline size_t HciPacketizer::GatherHeader(HciPacketType type, size_t header_size, const uint8_t* buffer,
                                          size_t length) {
  const size_t count = std::min<size_t>(header_size - bytes_read_, length);
  Gather(buffer, count);
  if (bytes_read_ != header_size) return count;
  bytes_remaining_ = PayloadSize(type, gathered_.get());
  state_ = State::kPayload;
  return count;
}

inline size_t HciPacketizer::GatherPayload(const uint8_t* buffer, size_t length) {
  const size_t count = std::min<size_t>(bytes_remaining_, length);
  Gather(buffer, count);
  bytes_remaining_ -= count;
  if (bytes_remaining_ != 0) return count;
  packet_.setToExternal(gathered_.get(), bytes_read_);
  packet_ready_cb_();
  state_ = State::kPreamble;
  bytes_read_ = 0;
  return count;
}

inline size_t HciPacketizer::OnDataReady(HciPacketType type, const uint8_t* buffer, const size_t& length) {
  if (state_ == State::kPayload) return GatherPayload(buffer, length);
  const size_t header_size = HeaderSize(type);
  if (header_size == 0) {
    dropped_bytes_ += length;
    return length;
  }
  return GatherHeader(type, header_size, buffer, length);
}

inline size_t HciPacketizer::FrameInPlace(HciPacketType type, const uint8_t* buffer, size_t length) {
  const size_t header_size = HeaderSize(type);
  if (header_size == 0 || length < header_size || state_ != State::kPreamble || bytes_read_ != 0) return 0;
  const size_t payload_size = PayloadSize(type, buffer);
  const size_t size = header_size + payload_size;
  // Without a payload, a packet is held back until another byte is seen.
  if (length < size + (payload_size == 0 ? 1 : 0)) return 0;
  packet_.setToExternal(const_cast<uint8_t*>(buffer), size);
  return size;
}

}  // namespace android::hardware::bluetooth::hci
