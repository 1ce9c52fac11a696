#include "bthal/hci/tell_packet.h"

#include <algorithm>

#include "bthal/hci/dictionary.h"
#include "bthal/hci/framing.h"
#include "bthal/hci/words.h"

namespace bthal::tool {

namespace {

bool IsRight(const ToldPacket& packet) { return PacketProblem(packet.kind, packet.bytes).empty(); }

bool HasName(const ToldPacket& packet) {
  if (packet.kind == kEvent) return EventName(packet.bytes).has_value();
  return packet.bytes.size() >= 2 && FindCommand(Le16(packet.bytes, 0)) != nullptr;
}

}  // namespace

std::optional<ToldPacket> TellPacket(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return std::nullopt;
  const ToldPacket with_type{bytes[0], bytes.subspan(1)};
  const ToldPacket others[] = {{kEvent, bytes}, {kCommand, bytes}};
  if (IsRight(with_type)) return with_type;
  const auto named = std::ranges::find_if(others, HasName);
  const auto right = std::ranges::find_if(others, IsRight);
  for (const ToldPacket& other : others) {
    if (HasName(other) && IsRight(other)) return other;
  }
  if (HeaderSize(with_type.kind) != 0) return with_type;
  if (named != std::end(others)) return *named;
  return right != std::end(others) ? std::optional(*right) : std::nullopt;
}

}  // namespace bthal::tool
