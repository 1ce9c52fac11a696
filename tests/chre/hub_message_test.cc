// What the hub says, verified before it is believed. The requests are read at the other end by the virtual board.
#include <bt_hub_generated.h>

#include "chre/hub_message.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using namespace ::bthal::test;

template <typename T>
Bytes Message(uint32_t id, bt_hub::Body kind, T create) {
  flatbuffers::FlatBufferBuilder builder;
  const auto body = create(builder).Union();
  bt_hub::FinishMessageBuffer(builder, bt_hub::CreateMessage(builder, id, kind, body));
  return {builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()};
}

Bytes PacketMessage(uint8_t type, const Bytes& packet) {
  return Message(0, bt_hub::Body_Packet, [&](auto& builder) {
    const auto bytes = builder.CreateVector(packet);
    return bt_hub::CreatePacket(builder, type, bytes);
  });
}

TEST(HubMessageTest, WhatIsNoTableOrCutOrAHostsOwnRequestIsNoMessage) {
  const Bytes whole = PacketMessage(0x04, {0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00});
  ASSERT_TRUE(Decode(whole));
  for (size_t size = 0; size + 4 < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    EXPECT_FALSE(Decode(cut)) << size << " of " << whole.size();
  }
  EXPECT_FALSE(Decode(Bytes(400, 0xA5)));
  const Encoded request = EncodePower(1, true, true);
  EXPECT_FALSE(Decode({request.data(), request.size()}));
}

TEST(HubMessageTest, APacketHasTheLengthThatItsHeaderTells) {
  EXPECT_TRUE(Decode(PacketMessage(0x02, {0x01, 0x00, 2, 0, 0xAA, 0xBB})));
  EXPECT_FALSE(Decode(PacketMessage(0x02, {0x01, 0x00, 3, 0, 0xAA, 0xBB})));
  EXPECT_FALSE(Decode(PacketMessage(0x02, {0x01, 0x00, 2})));
  EXPECT_TRUE(Decode(PacketMessage(0x05, {0x01, 0x00, 1, 0x40, 0xAA})));  // flags above the 14 bits of length
  EXPECT_FALSE(Decode(PacketMessage(0x03, {0x01, 0x00, 2, 0xAA})));
  EXPECT_FALSE(Decode(PacketMessage(0x70, {0, 0, 0, 1})));
}

TEST(HubMessageTest, WhatIsUnknownIsToldFromWhatIsBroken) {
  const auto type = Decode(PacketMessage(0x09, {}));
  ASSERT_TRUE(type && std::holds_alternative<UnknownType>(*type));
  EXPECT_EQ(std::get<UnknownType>(*type).kind, 0x09);
  const auto kind = Decode(Message(0, static_cast<bt_hub::Body>(99), bt_hub::CreateDebugDump));
  EXPECT_TRUE(kind && std::holds_alternative<UnknownType>(*kind));
  const auto event = Decode(Message(0, bt_hub::Body_ConnectionEvent, [](auto& builder) {
    return bt_hub::CreateConnectionEvent(builder, static_cast<bt_hub::Connection>(7));
  }));
  EXPECT_TRUE(event && std::holds_alternative<BrokenConnectionEvent>(*event));
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci::hub
