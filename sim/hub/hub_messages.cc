#include "sim/hub/hub_messages.h"

#include <bt_hub_generated.h>

namespace bthal::sim {
namespace {

using flatbuffers::FlatBufferBuilder;

template <typename Body>
Bytes Finish(FlatBufferBuilder& builder, uint32_t id, flatbuffers::Offset<Body> body) {
  bt_hub::FinishMessageBuffer(builder,
                              bt_hub::CreateMessage(builder, id, bt_hub::BodyTraits<Body>::enum_value, body.Union()));
  return {builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()};
}

Bytes Copy(const flatbuffers::Vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

}  // namespace

std::optional<HubRequest> ParseHubRequest(const Bytes& message) {
  flatbuffers::Verifier verifier(message.data(), message.size());
  if (!bt_hub::VerifyMessageBuffer(verifier)) return std::nullopt;
  const bt_hub::Message& whole = *bt_hub::GetMessage(message.data());
  if (whole.body() == nullptr) return std::nullopt;
  HubRequest request;
  request.id = whole.id();
  if (const auto* power = whole.body_as_Power()) {
    request.kind = "power";
    request.on = power->on();
    request.with_pin = power->with_pin();
  } else if (const auto* port = whole.body_as_Port()) {
    request.kind = "port";
    request.on = port->open();
  } else if (const auto* speed = whole.body_as_Speed()) {
    request.kind = "speed";
    request.speed = speed->bits_per_second();
  } else if (const auto* low_power = whole.body_as_LowPower()) {
    request.kind = "low-power";
    request.on = low_power->enable();
  } else if (const auto* packet = whole.body_as_Packet()) {
    request.kind = "packet";
    request.bytes = {packet->type()};
    PutAll(request.bytes, Copy(*packet->bytes()));
  } else if (const auto* batch = whole.body_as_Batch()) {
    request.kind = "batch";
    request.bytes = Copy(*batch->packets());
  } else if (whole.body_as_DebugDump() != nullptr) {
    request.kind = "dump";
  } else {
    return std::nullopt;
  }
  return request;
}

std::string HubWords(const HubRequest& request) {
  if (request.kind == "power") {
    return std::string("power ") + (request.on ? "on" : "off") + (request.with_pin ? " with its pin" : "");
  }
  if (request.kind == "port") return request.on ? "port open" : "port closed";
  if (request.kind == "speed") return "speed " + std::to_string(request.speed);
  if (request.kind == "low-power") return std::string("low-power mode ") + (request.on ? "on" : "off");
  if (request.kind == "dump") return "debug dump";
  return request.kind + " of " + std::to_string(request.bytes.size()) + " bytes";
}

Bytes HubReply(uint32_t id, uint8_t status) {
  FlatBufferBuilder builder;
  return Finish(builder, id, bt_hub::CreateReply(builder, static_cast<bt_hub::Status>(status)));
}

Bytes HubPacket(uint8_t type, const Bytes& packet) {
  FlatBufferBuilder builder;
  const auto bytes = builder.CreateVector(packet);
  return Finish(builder, 0, bt_hub::CreatePacket(builder, type, bytes));
}

Bytes HubLowPower(bool enabled) {
  FlatBufferBuilder builder;
  return Finish(builder, 0, bt_hub::CreateLowPowerState(builder, enabled));
}

Bytes HubConnection(uint8_t connection) {
  FlatBufferBuilder builder;
  return Finish(builder, 0, bt_hub::CreateConnectionEvent(builder, static_cast<bt_hub::Connection>(connection)));
}

Bytes HubDumpFragment(uint32_t number, bool last, const Bytes& event) {
  FlatBufferBuilder builder;
  const auto bytes = builder.CreateVector(event);
  return Finish(builder, 0, bt_hub::CreateDumpFragment(builder, number, last, bytes));
}

}  // namespace bthal::sim
