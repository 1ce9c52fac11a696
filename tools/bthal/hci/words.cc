#include "bthal/hci/words.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cctype>

#include "bthal/hci/commands.h"
#include "bthal/hci/event_words.h"
#include "bthal/hci/hex.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;

uint32_t Le32(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint32_t>(Le16(bytes, at)) | static_cast<uint32_t>(Le16(bytes, at + 2)) << 16;
}

// Command: opcode (2) | parameter length (1) | parameters
std::string CommandWords(std::span<const uint8_t> packet) {
  constexpr size_t kHeader = 3;
  if (packet.size() < kHeader) return "cut command";
  const uint16_t opcode = Le16(packet, 0);
  const std::span<const uint8_t> parameters = packet.subspan(kHeader);
  std::string text = OpcodeWords(opcode);
  if (opcode == opcodes::kUpdateBaudRate && parameters.size() >= 6)
    text += StringPrintf(", %u bit/s", Le32(parameters, 2));
  if (opcode == opcodes::kWriteBdAddr && parameters.size() >= 6) text += ", " + AddressWords(parameters.first(6));
  if (opcode == opcodes::kWriteRam && parameters.size() >= 4) {
    text += StringPrintf(", %zu bytes at 0x%08X", parameters.size() - 4, Le32(parameters, 0));
  }
  const bool enables = opcode == opcodes::kLeScanEnable || opcode == opcodes::kLeAdvertisingEnable ||
                       opcode == opcodes::kLeExtendedScanEnable;
  if (enables && !parameters.empty()) text += parameters[0] != 0 ? ", on" : ", off";
  if (packet[2] != parameters.size()) text += StringPrintf(" (length says %u)", packet[2]);
  return text;
}

// Data: handle and flags (2) | length (1 or 2) | data
std::string DataWords(std::span<const uint8_t> packet, size_t header, uint16_t handle_mask) {
  if (packet.size() < header) return "cut packet";
  return StringPrintf("handle 0x%03X, %zu bytes", Le16(packet, 0) & handle_mask, packet.size() - header);
}

}  // namespace

std::string KindWord(uint8_t kind) {
  switch (kind) {
    case kCommand:
      return "command";
    case kAclData:
      return "acl";
    case kScoData:
      return "sco";
    case kEvent:
      return "event";
    case kIsoData:
      return "iso";
    case kThreadData:
      return "thread";
    default:
      return StringPrintf("type 0x%02X", kind);
  }
}

std::string AddressWords(std::span<const uint8_t> six_bytes) {
  return StringPrintf("%02X:%02X:%02X:%02X:%02X:%02X", six_bytes[5], six_bytes[4], six_bytes[3], six_bytes[2],
                      six_bytes[1], six_bytes[0]);
}

std::string PacketWords(uint8_t kind, std::span<const uint8_t> packet) {
  switch (kind) {
    case kCommand:
      return CommandWords(packet);
    case kEvent:
      return EventWords(packet);
    case kAclData:
      return DataWords(packet, 4, 0x0FFF);
    case kScoData:
      return DataWords(packet, 3, 0x0FFF);
    case kIsoData:
      return DataWords(packet, 4, 0x0FFF);
    case kThreadData:
      return packet.size() < 4 ? "cut frame" : StringPrintf("frame of %zu bytes", packet.size() - 4);
    default:
      return StringPrintf("%zu bytes", packet.size());
  }
}

std::string ScriptName(std::string_view words) {
  std::string name(words);
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::isalnum(c) ? std::tolower(c) : '_'; });
  return name;
}

}  // namespace bthal::tool
