#include "h4/h4_packetizer.h"

#include "support/h4_stream.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci {
namespace {

using namespace ::bthal::test;

class H4PacketizerTest : public ::testing::Test {
 protected:
  size_t Feed(HciPacketType type, const Bytes& bytes) {
    return packetizer_.OnDataReady(type, bytes.data(), bytes.size());
  }

  // As a reader does it: until all is consumed.
  void FeedAll(HciPacketType type, const Bytes& bytes) {
    for (size_t offset = 0; offset < bytes.size();) {
      offset += packetizer_.OnDataReady(type, bytes.data() + offset, bytes.size() - offset);
    }
  }

  std::vector<Bytes> packets_;
  std::vector<const uint8_t*> places_;
  HciPacketizer packetizer_{[this] {
    packets_.push_back(packetizer_.GetPacket());
    places_.push_back(packetizer_.GetPacket().data());
  }};
};

TEST_F(H4PacketizerTest, PacketWithoutPayloadWaitsForTheNextCall) {
  EXPECT_EQ(Feed(HciPacketType::kEvent, {0x0E, 0x00}), 2u);
  EXPECT_THAT(packets_, SizeIs(0));
  EXPECT_EQ(Feed(HciPacketType::kEvent, {0x55, 0x55}), 0u);
  EXPECT_THAT(packets_, ElementsAre(Bytes{0x0E, 0x00}));
  // And the short cuts keep it waiting too.
  const Bytes empty = {0x0F, 0x00, 0x04};
  EXPECT_EQ(packetizer_.FrameInPlace(HciPacketType::kEvent, empty.data(), 2), 0u);
  EXPECT_EQ(packetizer_.FrameInPlace(HciPacketType::kEvent, empty.data(), 3), 2u);
  EXPECT_FALSE(packetizer_.GatherStart(HciPacketType::kEvent, empty.data(), 3, 0));
  EXPECT_TRUE(packetizer_.GatherStart(HciPacketType::kEvent, empty.data(), 2, 0));
  EXPECT_THAT(packets_, SizeIs(1));
  EXPECT_EQ(Feed(HciPacketType::kEvent, {0x04}), 0u);
  EXPECT_THAT(packets_, ElementsAre(Bytes{0x0E, 0x00}, Bytes{0x0F, 0x00}));
}

TEST_F(H4PacketizerTest, LengthFieldOfEachType) {
  struct {
    HciPacketType type;
    Bytes header;
    size_t payload;
  } const cases[] = {
      {HciPacketType::kCommand, {0x03, 0x0C, 0xFF}, 255},
      {HciPacketType::kAclData, {0x40, 0x20, 0x02, 0x01}, 258},
      {HciPacketType::kAclData, {0x40, 0x20, 0xFF, 0xFF}, 65535},
      {HciPacketType::kScoData, {0x01, 0x00, 0x30}, 48},
      {HciPacketType::kEvent, {0xFF, 0xFE}, 254},
      {HciPacketType::kIsoData, {0x01, 0x00, 0x07, 0xC1}, 263},  // the two top bits are not length
      {HciPacketType::kThreadData, {0x00, 0x00, 0x05, 0x00}, 5},
  };
  for (const auto& c : cases) {
    packets_.clear();
    Bytes packet = c.header;
    packet.resize(c.header.size() + c.payload, 0xA5);
    FeedAll(c.type, packet);
    EXPECT_THAT(packets_, ElementsAre(packet));
    EXPECT_EQ(packetizer_.FrameInPlace(c.type, packet.data(), packet.size()), packet.size());
    EXPECT_EQ(packetizer_.FrameInPlace(c.type, packet.data(), packet.size() - 1), 0u);
  }
}

TEST_F(H4PacketizerTest, ShortCutsRefuseInTheMiddleOfAPacket) {
  const Bytes event = {0x0E, 0x01, 0x77};
  ASSERT_EQ(Feed(HciPacketType::kEvent, {0x0E}), 1u);
  EXPECT_EQ(packetizer_.FrameInPlace(HciPacketType::kEvent, event.data(), event.size()), 0u);
  EXPECT_FALSE(packetizer_.GatherStart(HciPacketType::kEvent, event.data(), 2, 0));
  EXPECT_FALSE(packetizer_.GatherMiddle(event.data(), 1)) << "one byte finishes the header";
  FeedAll(HciPacketType::kEvent, {0x02, 0x11});
  EXPECT_EQ(packetizer_.FrameInPlace(HciPacketType::kEvent, event.data(), event.size()), 0u);
  EXPECT_FALSE(packetizer_.GatherStart(HciPacketType::kEvent, event.data(), 2, 0));
  FeedAll(HciPacketType::kEvent, {0x22});
  EXPECT_THAT(packets_, ElementsAre(Bytes{0x0E, 0x02, 0x11, 0x22}));
}

TEST_F(H4PacketizerTest, TypesWithoutFramingAreSwallowedAndCounted) {
  const Bytes bytes(10, 0xFF);
  uint64_t swallowed = 0;
  for (int code = 0; code < 256; ++code) {
    const auto type = static_cast<HciPacketType>(code);
    if ((code >= 1 && code <= 5) || code == 0x70) continue;
    EXPECT_EQ(packetizer_.FrameInPlace(type, bytes.data(), bytes.size()), 0u);
    EXPECT_FALSE(packetizer_.GatherStart(type, bytes.data(), bytes.size(), 0));
    EXPECT_EQ(Feed(type, bytes), bytes.size());
    swallowed += bytes.size();
  }
  EXPECT_EQ(packetizer_.DroppedBytes(), swallowed);
  EXPECT_THAT(packets_, SizeIs(0));
}

TEST_F(H4PacketizerTest, WholePacketsAreLentAndPiecesGatheredInOnePlace) {
  const Bytes whole = MakePacket(0x02, 2000, 1);
  ASSERT_EQ(packetizer_.FrameInPlace(HciPacketType::kAclData, whole.data(), whole.size()), whole.size());
  EXPECT_EQ(packetizer_.GetPacket().data(), whole.data());
  for (const size_t payload : {1, 65535, 7}) FeedAll(HciPacketType::kAclData, MakePacket(0x02, payload, 1));
  ASSERT_THAT(places_, SizeIs(3));
  EXPECT_THAT(places_, Each(places_[0]));
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci
