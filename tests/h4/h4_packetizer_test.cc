#include "h4/h4_packetizer.h"

#include "support/h4_stream.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci {
namespace {

using namespace ::bthal::test;

class H4PacketizerTest : public ::testing::Test {
 protected:
  size_t Feed(HciPacketType type, const Bytes& bytes) {
    return packetizer_.OnDataReady(type, WithReadAhead(bytes).data(), bytes.size());
  }

  // As a reader does it: until all is consumed.
  void FeedAll(HciPacketType type, const Bytes& bytes) {
    const Bytes readable = WithReadAhead(bytes);
    for (size_t offset = 0; offset < bytes.size();) {
      offset += packetizer_.OnDataReady(type, readable.data() + offset, bytes.size() - offset);
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
}

TEST_F(H4PacketizerTest, ShortCutsTakeWhatFinishesNothing) {
  const Bytes bytes = WithReadAhead({0x0E, 0x03, 0x11, 0x22, 0x33});
  EXPECT_FALSE(packetizer_.TakeMiddle(bytes.data(), 1)) << "between packets";
  ASSERT_EQ(packetizer_.OnDataReady(HciPacketType::kEvent, bytes.data(), 1), 1u);
  EXPECT_FALSE(packetizer_.TakeMiddle(&bytes[1], 1)) << "one byte finishes the header";
  ASSERT_EQ(packetizer_.OnDataReady(HciPacketType::kEvent, &bytes[1], 1), 1u);
  EXPECT_TRUE(packetizer_.TakeMiddle(&bytes[2], 2));
  EXPECT_FALSE(packetizer_.TakeMiddle(&bytes[4], 1)) << "one byte finishes the payload";
  ASSERT_EQ(packetizer_.OnDataReady(HciPacketType::kEvent, &bytes[4], 1), 1u);
  packetizer_.TakeBeginning(bytes.data(), 3, 5);
  ASSERT_EQ(packetizer_.OnDataReady(HciPacketType::kEvent, &bytes[3], 2), 2u);
  const Bytes packet(bytes.begin(), bytes.begin() + 5);
  EXPECT_THAT(packets_, ElementsAre(packet, packet));
}

TEST_F(H4PacketizerTest, TypesWithoutFramingAreSwallowedAndCounted) {
  const Bytes bytes(10, 0xFF);
  uint64_t swallowed = 0;
  for (int code = 0; code < 256; ++code) {
    const auto type = static_cast<HciPacketType>(code);
    if ((code >= 1 && code <= 5) || code == 0x70) continue;
    EXPECT_EQ(Feed(type, bytes), bytes.size());
    swallowed += bytes.size();
  }
  EXPECT_EQ(packetizer_.DroppedBytes(), swallowed);
  EXPECT_THAT(packets_, SizeIs(0));
}

TEST_F(H4PacketizerTest, PiecesAreGatheredInOnePlace) {
  for (const size_t payload : {1, 65535, 7}) FeedAll(HciPacketType::kAclData, MakePacket(0x02, payload, 1));
  ASSERT_THAT(places_, SizeIs(3));
  EXPECT_THAT(places_, Each(places_[0]));
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci
