// HCI packets as every component holds them, and the H4 codes and offsets that more than one component reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include <hidl/HidlSupport.h>

namespace android::hardware::bluetooth::hci {

// One HCI packet, header and payload, without its H4 type byte. Multi-byte fields are little-endian.
using HciPacket = hidl_vec<uint8_t>;

// Receives one packet. The reference, and the bytes it may lend, are valid during the call only: who keeps them copies.
using HciPacketCallback = std::function<void(const HciPacket&)>;

// Who takes what the controller sends, by kind. All run on the receive thread.
struct Consumers {
  HciPacketCallback event_cb = {};
  HciPacketCallback acl_cb = {};
  HciPacketCallback sco_cb = {};
  HciPacketCallback iso_cb = {};
  HciPacketCallback thread_cb = {};  // may be empty: Thread frames are then dropped
  // May be empty. Called with true: the packets that follow come from one read, and may be kept, to be handed on
  // together. Called with false: what was kept is to be handed on now, and what comes is not to be kept.
  std::function<void(bool)> more_to_come_cb = {};
};

// The H4 type byte.
enum class HciPacketType : uint8_t {
  kUnknown = 0x00,  // no packet in progress
  kCommand = 0x01,
  kAclData = 0x02,
  kScoData = 0x03,
  kEvent = 0x04,
  kIsoData = 0x05,
  kThreadData = 0x70,  // Thread radio frames over the same UART
};

inline constexpr uint8_t kHardwareErrorEvent = 0x10;
inline constexpr uint8_t kCommandCompleteEvent = 0x0E;
inline constexpr uint8_t kCommandStatusEvent = 0x0F;
inline constexpr uint8_t kNumberOfCompletedPacketsEvent = 0x13;
inline constexpr uint8_t kLoopbackCommandEvent = 0x19;
inline constexpr uint8_t kVendorSpecificEvent = 0xFF;

// Command packet:
//   opcode (2) | parameter length (1) | parameters
inline constexpr size_t kCommandHeaderSize = 3;

// Command Complete event:
//   0x0E | length | Num_HCI_Command_Packets | opcode (2) | status | return parameters
inline constexpr size_t kCommandCompleteCreditsOffset = 2;
inline constexpr size_t kCommandCompleteOpcodeOffset = 3;
inline constexpr size_t kCommandCompleteStatusOffset = 5;
inline constexpr size_t kCommandCompleteParametersOffset = 6;

// Command Status event:
//   0x0F | length | status | Num_HCI_Command_Packets | opcode (2)
inline constexpr size_t kCommandStatusStatusOffset = 2;
inline constexpr size_t kCommandStatusCreditsOffset = 3;
inline constexpr size_t kCommandStatusOpcodeOffset = 4;

inline constexpr size_t kOpcodeSize = 2;

// The opcode at `offset`; 0 where the packet ends before it.
inline uint16_t ReadOpcode(const HciPacket& packet, size_t offset) {
  if (packet.size() < offset + kOpcodeSize) return 0;
  return static_cast<uint16_t>(packet[offset] | packet[offset + 1] << 8);
}

}  // namespace android::hardware::bluetooth::hci
