#include "bthal/hci/framing.h"

#include <android-base/stringprintf.h>

#include "bthal/hci/codes.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Bytes = std::span<const uint8_t>;

}  // namespace

// Command: opcode (2) | length (1). Event: code (1) | length (1). ACL and ISO: handle and flags (2) | length (2). SCO:
// handle and flags (2) | length (1). Thread: flags (2) | length (2).
size_t HeaderSize(uint8_t kind) {
  switch (kind) {
    case kEvent:
      return 2;
    case kCommand:
    case kScoData:
      return 3;
    case kAclData:
    case kIsoData:
    case kThreadData:
      return 4;
    default:
      return 0;
  }
}

size_t SaidLength(uint8_t kind, Bytes packet) {
  const size_t header = HeaderSize(kind);
  if (header < 4) return packet[header - 1];
  constexpr int kIsoLength = 0x3FFF;
  return Le16(packet, 2) & (kind == kIsoData ? kIsoLength : 0xFFFF);
}

std::string FramingProblem(uint8_t kind, Bytes packet) {
  const size_t header = HeaderSize(kind);
  if (header == 0) return StringPrintf("there is no packet type 0x%02X", kind);
  if (packet.size() < header) {
    return StringPrintf("cut in its header: %zu bytes needed, %zu there", header, packet.size());
  }
  const size_t said = SaidLength(kind, packet);
  const size_t there = packet.size() - header;
  return said == there ? "" : StringPrintf("the length says %zu, %zu there", said, there);
}

}  // namespace bthal::tool
