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

  // So many bytes behind every buffer given to the packetizer must be readable. It looks at none of them, but copies
  // small pieces in blocks of this size.
  static constexpr size_t kReadAhead = 64;

  // `packet_ready_cb` is called once for every packet that OnDataReady completes, from inside it. All memory that
  // framing ever needs is taken here.
  explicit HciPacketizer(HciPacketReadyCallback packet_ready_cb);

  // Takes what it needs of `buffer` to finish the current header or the current payload and returns that count (0 to
  // `length`); the caller calls again with the rest. A packet without payload completes on the next call, which
  // consumes nothing. A type that cannot be framed swallows all bytes and counts them (see DroppedBytes). This alone
  // frames any stream; the two operations below are short cuts through it.
  size_t OnDataReady(HciPacketType type, const uint8_t* buffer, const size_t& length);

  // A short cut, between packets: takes all of `buffer`, the beginning of a packet of `size` bytes, by its
  // header, which is whole. It is not the whole packet.
  void TakeBeginning(const uint8_t* buffer, size_t length, size_t size);

  // Another: takes all of `buffer` if that is at most kReadAhead bytes and finishes neither the header nor the payload
  // in progress. Returns false and does nothing in every other case.
  bool TakeMiddle(const uint8_t* buffer, size_t length);

  // The packet just completed. It lends its bytes: valid inside `packet_ready_cb`.
  const HciPacket& GetPacket() const { return packet_; }

  // The size of the packet that begins with `header`, which is whole. `type` can be framed.
  static size_t PacketSize(HciPacketType type, const uint8_t* header) {
    return HeaderSize(type) + PayloadSize(type, header);
  }

  // Bytes swallowed because their type cannot be framed. Any thread.
  uint64_t DroppedBytes() const { return dropped_bytes_; }

 private:
  enum class State { kPreamble = 0, kPayload = 1 };

  static constexpr size_t kLargestHeaderSize = 4;
  static constexpr size_t kLargestPayloadSize = 0xFFFF;
  static constexpr uint8_t kIsoLengthHighByteMask = 0x3F;
  static size_t HeaderSize(HciPacketType type);
  static size_t PayloadSize(HciPacketType type, const uint8_t* header);

  uint8_t* packet_start() const { return gathered_.get(); }
  void Take(const uint8_t* buffer, size_t count);
  void Advance(HciPacketType type);

  State state_ = State::kPreamble;
  uint8_t* next_ = nullptr;  // where, in gathered_, the next byte of the header or payload in progress goes
  uint8_t* end_ = nullptr;   // where that will end; the same between packets
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

inline void HciPacketizer::TakeBeginning(const uint8_t* buffer, size_t length, size_t size) {
  next_ = packet_start();
  end_ = next_ + size;
  state_ = State::kPayload;
  Take(buffer, length);
}

inline bool HciPacketizer::TakeMiddle(const uint8_t* buffer, size_t length) {
  if (length >= static_cast<size_t>(end_ - next_) || length > kReadAhead) return false;
  Take(buffer, length);
  return true;
}

inline size_t HciPacketizer::OnDataReady(HciPacketType type, const uint8_t* buffer, const size_t& length) {
  if (next_ == end_ && state_ == State::kPreamble) {
    next_ = packet_start();
    end_ = next_ + HeaderSize(type);
    if (next_ == end_) {
      dropped_bytes_ += length;
      return length;
    }
  }
  const size_t count = std::min<size_t>(end_ - next_, length);
  Take(buffer, count);
  if (next_ == end_) Advance(type);
  return count;
}

// A copy of known size needs no call and no branches; what it brings along too much lies where the next bytes go.
inline void HciPacketizer::Take(const uint8_t* buffer, size_t count) {
  if (count == 1) {
    *next_ = *buffer;
  } else if (count <= kReadAhead) {
    std::memcpy(next_, buffer, kReadAhead);
  } else {
    std::copy_n(buffer, count, next_);
  }
  next_ += count;
}

// From the finished header to the payload, or from the finished payload to the next packet.
inline void HciPacketizer::Advance(HciPacketType type) {
  if (state_ == State::kPreamble) {
    end_ += PayloadSize(type, packet_start());
    state_ = State::kPayload;
    return;
  }
  packet_.setToExternal(packet_start(), end_ - packet_start());
  packet_ready_cb_();
  state_ = State::kPreamble;
}

}  // namespace android::hardware::bluetooth::hci
