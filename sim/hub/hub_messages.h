// The hub's half of the messages, as bytes and as what they say.
#pragma once

#include <optional>
#include <string>

#include "sim/base/bytes.h"

namespace bthal::sim {

struct HubRequest {
  std::string kind;  // power, port, speed, low-power, packet, batch, dump
  uint32_t id = 0;   // 0: no reply is asked for
  bool on = false;   // power, port, low-power
  bool with_pin = false;
  uint32_t speed = 0;
  Bytes bytes;  // packet: type byte first; batch
};

// Nothing for what is no request.
std::optional<HubRequest> ParseHubRequest(const Bytes& message);
// "power on with its pin", "batch of 32588 bytes".
std::string HubWords(const HubRequest& request);

Bytes HubReply(uint32_t id, uint8_t status);
Bytes HubPacket(uint8_t type, const Bytes& packet);
Bytes HubLowPower(bool enabled);
Bytes HubConnection(uint8_t connection);
inline constexpr uint8_t kHubLost = 1;
inline constexpr uint8_t kHubBack = 2;
Bytes HubDumpFragment(uint32_t number, bool last, const Bytes& event);

}  // namespace bthal::sim
