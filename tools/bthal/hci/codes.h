// What the numbers in HCI packets mean, where more than one place must know.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace bthal::tool {

// The H4 type bytes.
enum PacketKind : uint8_t {
  kCommand = 0x01,
  kAclData = 0x02,
  kScoData = 0x03,
  kEvent = 0x04,
  kIsoData = 0x05,
  kThreadData = 0x70,
};

namespace opcodes {
inline constexpr uint16_t kReset = 0x0C03;
inline constexpr uint16_t kReadLocalName = 0x0C14;
inline constexpr uint16_t kReadLocalVersion = 0x1001;
inline constexpr uint16_t kReadBufferSize = 0x1005;
inline constexpr uint16_t kReadBdAddr = 0x1009;
inline constexpr uint16_t kLeReadBufferSize = 0x2002;
inline constexpr uint16_t kLeAdvertisingEnable = 0x200A;
inline constexpr uint16_t kLeScanEnable = 0x200C;
inline constexpr uint16_t kLeExtendedScanEnable = 0x2042;
inline constexpr uint16_t kWriteBdAddr = 0xFC01;
inline constexpr uint16_t kUpdateBaudRate = 0xFC18;
inline constexpr uint16_t kSetSleepMode = 0xFC27;
inline constexpr uint16_t kWriteRam = 0xFC4C;
inline constexpr uint16_t kReadChipId = 0xFC79;
}  // namespace opcodes

namespace events {
inline constexpr uint8_t kInquiryResult = 0x02;
inline constexpr uint8_t kConnectionComplete = 0x03;
inline constexpr uint8_t kDisconnectionComplete = 0x05;
inline constexpr uint8_t kCommandComplete = 0x0E;
inline constexpr uint8_t kCommandStatus = 0x0F;
inline constexpr uint8_t kHardwareError = 0x10;
inline constexpr uint8_t kCompletedPackets = 0x13;
inline constexpr uint8_t kLoopbackCommand = 0x19;
inline constexpr uint8_t kInquiryResultWithRssi = 0x22;
inline constexpr uint8_t kExtendedInquiryResult = 0x2F;
inline constexpr uint8_t kLeMeta = 0x3E;
inline constexpr uint8_t kVendor = 0xFF;
// LE Meta's.
inline constexpr uint8_t kLeConnectionComplete = 0x01;
inline constexpr uint8_t kLeAdvertisingReport = 0x02;
inline constexpr uint8_t kLeEnhancedConnectionComplete = 0x0A;
inline constexpr uint8_t kLeDirectedAdvertisingReport = 0x0B;
inline constexpr uint8_t kLeExtendedAdvertisingReport = 0x0D;
inline constexpr uint8_t kLePeriodicAdvertisingReport = 0x0F;
}  // namespace events

// Two bytes, least significant first. They must be there.
inline uint16_t Le16(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

// Whether a packet is that command; one too short for an opcode is none.
inline bool IsCommand(uint8_t kind, std::span<const uint8_t> packet, uint16_t opcode) {
  return kind == kCommand && packet.size() >= 2 && Le16(packet, 0) == opcode;
}

}  // namespace bthal::tool
