#include "chre/hub_message.h"

#include <bt_hub_generated.h>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using flatbuffers::FlatBufferBuilder;

constexpr size_t kTableRoom = 128;  // what a message needs besides the bytes that it carries

template <typename Body>
Encoded Finish(FlatBufferBuilder& builder, uint32_t id, flatbuffers::Offset<Body> body) {
  const auto type = bt_hub::BodyTraits<Body>::enum_value;
  bt_hub::FinishMessageBuffer(builder, bt_hub::CreateMessage(builder, id, type, body.Union()));
  return builder.Release();
}

std::span<const uint8_t> Bytes(const flatbuffers::Vector<uint8_t>* bytes) { return {bytes->data(), bytes->size()}; }

//            byte 0      1         2         3
//   ACL     | handle, flags     | length            |
//   SCO     | handle, flags     | length  |
//   ISO     | handle, flags     | length, 14 bits   |
//   Thread  | zero              | length            |
// Events are left to the flow control, which reports one whose length is wrong.
bool HasItsLength(HciPacketType type, std::span<const uint8_t> packet) {
  constexpr size_t kIsoLengthMask = 0x3FFF;
  if (type == HciPacketType::kEvent) return true;
  if (type == HciPacketType::kScoData) return packet.size() >= 3 && packet.size() == size_t{3} + packet[2];
  if (packet.size() < 4) return false;
  const size_t length = packet[2] | static_cast<size_t>(packet[3]) << 8;
  return packet.size() == 4 + (type == HciPacketType::kIsoData ? length & kIsoLengthMask : length);
}

std::optional<FromHub> DecodePacket(const bt_hub::Packet& packet) {
  const auto type = static_cast<HciPacketType>(packet.type());
  switch (type) {
    case HciPacketType::kEvent:
    case HciPacketType::kAclData:
    case HciPacketType::kScoData:
    case HciPacketType::kIsoData:
    case HciPacketType::kThreadData:
      if (!HasItsLength(type, Bytes(packet.bytes()))) return std::nullopt;
      return ReceivedPacket{packet.type(), Bytes(packet.bytes())};
    default:
      return UnknownType{packet.type()};
  }
}

FromHub DecodeConnection(const bt_hub::ConnectionEvent& event) {
  switch (event.connection()) {
    case bt_hub::Connection_Lost:
      return ConnectionLost{};
    case bt_hub::Connection_Back:
      return ConnectionBack{};
    default:
      return BrokenConnectionEvent{static_cast<uint8_t>(event.connection())};
  }
}

}  // namespace

Encoded EncodePower(uint32_t id, bool on, bool with_pin) {
  FlatBufferBuilder builder(kTableRoom);
  return Finish(builder, id, bt_hub::CreatePower(builder, on, with_pin));
}

Encoded EncodePort(uint32_t id, bool open) {
  FlatBufferBuilder builder(kTableRoom);
  return Finish(builder, id, bt_hub::CreatePort(builder, open));
}

Encoded EncodeSpeed(uint32_t id, UartBaudRate rate) {
  FlatBufferBuilder builder(kTableRoom);
  return Finish(builder, id, bt_hub::CreateSpeed(builder, static_cast<uint32_t>(rate)));
}

Encoded EncodeLowPower(uint32_t id, bool enable) {
  FlatBufferBuilder builder(kTableRoom);
  return Finish(builder, id, bt_hub::CreateLowPower(builder, enable));
}

Encoded EncodePacket(uint32_t id, uint8_t type, std::span<const uint8_t> packet) {
  FlatBufferBuilder builder(kTableRoom + packet.size());
  const auto bytes = builder.CreateVector(packet.data(), packet.size());
  return Finish(builder, id, bt_hub::CreatePacket(builder, type, bytes));
}

Encoded EncodeBatch(uint32_t id, std::span<const uint8_t> packets) {
  FlatBufferBuilder builder(kTableRoom + packets.size());
  const auto bytes = builder.CreateVector(packets.data(), packets.size());
  return Finish(builder, id, bt_hub::CreateBatch(builder, bytes));
}

Encoded EncodeDebugDump(uint32_t id) {
  FlatBufferBuilder builder(kTableRoom);
  return Finish(builder, id, bt_hub::CreateDebugDump(builder));
}

std::optional<FromHub> Decode(std::span<const uint8_t> message) {
  flatbuffers::Verifier verifier(message.data(), message.size());
  if (!bt_hub::VerifyMessageBuffer(verifier)) return std::nullopt;
  const bt_hub::Message& whole = *bt_hub::GetMessage(message.data());
  // The verifier passes a kind that it does not know, whatever lies behind it.
  if (whole.body_type() > bt_hub::Body_MAX) return UnknownType{static_cast<uint8_t>(whole.body_type())};
  if (whole.body() == nullptr) return std::nullopt;
  switch (whole.body_type()) {
    case bt_hub::Body_Reply:
      return Reply{whole.id(), static_cast<uint8_t>(whole.body_as_Reply()->status())};
    case bt_hub::Body_Packet:
      return DecodePacket(*whole.body_as_Packet());
    case bt_hub::Body_LowPowerState:
      return LowPowerState{whole.body_as_LowPowerState()->enabled()};
    case bt_hub::Body_ConnectionEvent:
      return DecodeConnection(*whole.body_as_ConnectionEvent());
    case bt_hub::Body_DumpFragment: {
      const bt_hub::DumpFragment& fragment = *whole.body_as_DumpFragment();
      return DumpFragment{fragment.number(), fragment.last(), Bytes(fragment.event())};
    }
    default:
      return std::nullopt;
  }
}

BqrErrorCode ErrorKind(uint8_t status) {
  constexpr auto kBeforeTheFirst = static_cast<uint8_t>(BqrErrorCode::kChreUsfTransportPrepareError);
  if (status == bt_hub::Status_Ok || status > bt_hub::Status_MAX) return BqrErrorCode::kChreUsfUnknownError;
  return static_cast<BqrErrorCode>(kBeforeTheFirst + status);
}

}  // namespace android::hardware::bluetooth::hci::hub
