// The messages that the service and the sensor hub exchange, as bytes and as what they say. No I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <variant>

#include <flatbuffers/flatbuffers.h>

#include "debug_central/debug_central.h"
#include "h4/hw_control/uart_baud_rate.h"

namespace android::hardware::bluetooth::hci::hub {

// No message is larger, in either direction: a batch of 32 KiB with its table, and room to spare.
inline constexpr size_t kMaxMessage = size_t{64} * 1024;

// A request that is ready to be sent.
using Encoded = flatbuffers::DetachedBuffer;

// `id` comes back with the reply; 0 asks for none.
Encoded EncodePower(uint32_t id, bool on, bool with_pin);
Encoded EncodePort(uint32_t id, bool open);
Encoded EncodeSpeed(uint32_t id, UartBaudRate rate);
Encoded EncodeLowPower(uint32_t id, bool enable);
Encoded EncodePacket(uint32_t id, uint8_t type, std::span<const uint8_t> packet);
Encoded EncodeBatch(uint32_t id, std::span<const uint8_t> packets);
Encoded EncodeDebugDump(uint32_t id);

// What the hub says. Spans lie in the message that was decoded.
struct Reply {
  uint32_t id;
  uint8_t status;  // 0: done
};
struct ReceivedPacket {
  uint8_t type;
  std::span<const uint8_t> bytes;
};
struct LowPowerState {
  bool enabled;
};
struct ConnectionLost {};
struct ConnectionBack {};
struct DumpFragment {
  uint32_t number;
  bool last;
  std::span<const uint8_t> event;
};
// A whole message that this service has no use for: of an unknown kind, or a packet of an unknown type.
struct UnknownType {
  uint8_t kind;
};
// A connection event that says neither lost nor back.
struct BrokenConnectionEvent {
  uint8_t connection;
};

using FromHub = std::variant<Reply, ReceivedPacket, LowPowerState, ConnectionLost, ConnectionBack, DumpFragment,
                             UnknownType, BrokenConnectionEvent>;

// Verifies the message before it reads a field. Nothing for what is no table of this schema, for a message that only
// the service may send, and for a packet that does not have the length which its header tells.
std::optional<FromHub> Decode(std::span<const uint8_t> message);

// The error kind of a status other than 0; one beyond the catalogue is an unknown error.
BqrErrorCode ErrorKind(uint8_t status);

}  // namespace android::hardware::bluetooth::hci::hub
