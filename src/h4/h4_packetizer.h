// Cuts a run of received bytes into whole HCI packets.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>

#include "hci/hci_packet.h"

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
  // consumes nothing. A type that cannot be framed swallows all bytes and counts them (see DroppedBytes). This alone
  // frames any stream; the three operations below are short cuts through it.
  size_t OnDataReady(HciPacketType type, const uint8_t* buffer, const size_t& length);

  // Between packets, with a whole packet at the start of `buffer` (and a byte behind it, should it have no payload):
  // lends that packet to GetPacket without copying it and returns its size. Handing it on is the caller's: no callback
  // is made. Returns 0 and does nothing in every other case.
  size_t FrameInPlace(HciPacketType type, const uint8_t* buffer, size_t length);

  // Between packets, with a whole header in `buffer` but nothing behind the packet: takes everything. The `before`
  // bytes ahead of `buffer` must be readable. Returns false and does nothing in every other case.
  bool GatherStart(HciPacketType type, const uint8_t* buffer, size_t length, size_t before);

  // With bytes that finish neither the header nor the payload in progress: takes them all. Returns false and does
  // nothing in every other case.
  bool GatherMiddle(const uint8_t* buffer, size_t length);

  // The packet just completed. It lends its bytes: valid inside `packet_ready_cb`, or after FrameInPlace for as long as
  // the buffer given to it is.
  const HciPacket& GetPacket() const { return packet_; }

  // Bytes swallowed because their type cannot be framed. Any thread.
  uint64_t DroppedBytes() const { return dropped_bytes_; }

 private:
  enum class State { kPreamble = 0, kPayload = 1 };

  static constexpr size_t kLargestHeaderSize = 4;
  static constexpr size_t kLargestPayloadSize = 0xFFFF;
  static constexpr uint8_t kIsoLengthHighByteMask = 0x3F;
  // Up to this size, pieces of packets are copied as one block of it wherever the read holds that much to one side of
  // them: a copy of known size needs no call and no branches. `gathered_` has a block of room at either end for what
  // such a copy brings along.
  static constexpr size_t kBlockSize = 64;

  static size_t HeaderSize(HciPacketType type);
  static size_t PayloadSize(HciPacketType type, const uint8_t* header);

  bool BetweenPackets() const { return state_ == State::kPreamble && bytes_remaining_ == 0; }
  uint8_t* packet_start() const { return gathered_.get() + kBlockSize; }
  void Gather(const uint8_t* buffer, size_t length, size_t count);
  void Advance(HciPacketType type);

  State state_ = State::kPreamble;
  uint64_t bytes_remaining_ = 0;  // what the header or payload being gathered still lacks; 0 between packets
  uint8_t* end_ = nullptr;        // where, in gathered_, it will end
  // A packet that does not lie whole in one read is put together here. One buffer for the largest packet, for good:
  // packets that come in pieces neither allocate nor let memory grow.
  const std::unique_ptr<uint8_t[]> gathered_;
  HciPacket packet_;
  const HciPacketReadyCallback packet_ready_cb_;
  std::atomic<uint64_t> dropped_bytes_{0};
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

inline size_t HciPacketizer::OnDataReady(HciPacketType type, const uint8_t* buffer, const size_t& length) {
  if (BetweenPackets()) {
    bytes_remaining_ = HeaderSize(type);
    end_ = packet_start() + bytes_remaining_;
    if (bytes_remaining_ == 0) {
      dropped_bytes_ += length;
      return length;
    }
  }
  const size_t count = std::min<size_t>(bytes_remaining_, length);
  Gather(buffer, length, count);
  if (bytes_remaining_ == 0) Advance(type);
  return count;
}

// From the finished header to the payload, or from the finished payload to the next packet.
inline void HciPacketizer::Advance(HciPacketType type) {
  if (state_ == State::kPreamble) {
    bytes_remaining_ = PayloadSize(type, packet_start());
    end_ += bytes_remaining_;
    state_ = State::kPayload;
    return;
  }
  packet_.setToExternal(packet_start(), end_ - packet_start());
  packet_ready_cb_();
  state_ = State::kPreamble;
}

inline void HciPacketizer::Gather(const uint8_t* buffer, size_t length, size_t count) {
  uint8_t* const to = end_ - bytes_remaining_;
  bytes_remaining_ -= count;
  if (count == 1) {
    *to = *buffer;
  } else if (count <= kBlockSize && length >= kBlockSize) {
    std::memcpy(to, buffer, kBlockSize);
  } else {
    std::copy_n(buffer, count, to);
  }
}

inline bool HciPacketizer::GatherMiddle(const uint8_t* buffer, size_t length) {
  if (length >= bytes_remaining_) return false;
  Gather(buffer, length, length);
  return true;
}

inline size_t HciPacketizer::FrameInPlace(HciPacketType type, const uint8_t* buffer, size_t length) {
  const size_t header_size = HeaderSize(type);
  if (header_size == 0 || length < header_size || !BetweenPackets()) return 0;
  const size_t payload_size = PayloadSize(type, buffer);
  const size_t size = header_size + payload_size;
  if (length < size + (payload_size == 0 ? 1 : 0)) return 0;
  packet_.setToExternal(const_cast<uint8_t*>(buffer), size);
  return size;
}

inline bool HciPacketizer::GatherStart(HciPacketType type, const uint8_t* buffer, size_t length, size_t before) {
  const size_t header_size = HeaderSize(type);
  if (header_size == 0 || length < header_size || !BetweenPackets()) return false;
  const size_t size = header_size + PayloadSize(type, buffer);
  if (length > size) return false;
  if (length <= kBlockSize && length + before >= kBlockSize) {
    std::memcpy(packet_start() + length - kBlockSize, buffer + length - kBlockSize, kBlockSize);
  } else {
    std::copy_n(buffer, length, packet_start());
  }
  state_ = State::kPayload;
  end_ = packet_start() + size;
  bytes_remaining_ = size - length;
  return true;
}

}  // namespace android::hardware::bluetooth::hci
