// What the hub has sent, on its way to the consumers: in order, no further than they take it, and counted where it
// ends.
#include "chre/hub_delivery.h"
#include "chre/hub_link.h"

#include "support/test.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using namespace ::bthal::test;

constexpr milliseconds kShort(1);
constexpr milliseconds kLong(60000);

// A consumer of each kind, which notes what it gets.
class HubDeliveryTest : public ::testing::Test {
 protected:
  HciPacketCallback Note(char kind) {
    return [this, kind](const HciPacket& packet) {
      const std::lock_guard lock(mutex_);
      taken_ += kind + std::to_string(packet.size());
    };
  }
  Consumers Notes() { return {Note('e'), Note('a'), Note('s'), Note('i'), Note('t')}; }
  bool Taken(const std::string& what) {
    return WaitFor([&] { return (std::lock_guard(mutex_), taken_ == what); });
  }
  // The consumer of events is in its first call, until `leave_`.
  void StartBlocked() {
    Consumers consumers = Notes();
    consumers.event_cb = [&](const HciPacket&) { called_.set_value(), leave_.get_future().wait(), left_ = true; };
    delivery_.Attach(consumers);
    ASSERT_TRUE(delivery_.Start(receiver_));
    Add(HciPacketType::kEvent, 2);
    called_.get_future().wait();
  }
  void Add(HciPacketType type, size_t size) { delivery_.Add(static_cast<uint8_t>(type), Bytes(size)); }

  LogCapture log_;
  std::mutex mutex_;
  std::string taken_;
  std::promise<void> called_, leave_;
  std::atomic<bool> left_{false};
  HubDelivery delivery_;
  const std::shared_ptr<const int> receiver_ = std::make_shared<int>();
};

TEST_F(HubDeliveryTest, EachKindGoesToItsConsumerInOrder) {
  EXPECT_FALSE(delivery_.Start(receiver_)) << "nobody is attached";
  Add(HciPacketType::kEvent, 9);
  EXPECT_EQ(delivery_.Dropped(), 1U);
  delivery_.Attach(Notes());
  Add(HciPacketType::kEvent, 2);
  Add(HciPacketType::kThreadData, 4);
  EXPECT_TRUE(delivery_.Start(receiver_));
  EXPECT_TRUE(delivery_.Start(receiver_)) << "once is enough";
  Add(HciPacketType::kAclData, 5);
  Add(HciPacketType::kIsoData, 6);
  Add(HciPacketType::kScoData, 3);
  EXPECT_TRUE(Taken("e2t4a5i6s3"));

  // Others take their place, and one without a consumer for its kind is passed over.
  Consumers others = Notes();
  others.sco_cb = nullptr;
  delivery_.Attach(others);
  EXPECT_TRUE(delivery_.Start(receiver_));
  Add(HciPacketType::kScoData, 3);
  Add(HciPacketType::kEvent, 7);
  EXPECT_TRUE(Taken("e2t4a5i6s3e7"));
  delivery_.TakeAway(kLong);
  EXPECT_EQ(delivery_.Dropped(), 1U);
}

TEST_F(HubDeliveryTest, BehindAConsumerThatDoesNotReturnItFillsUpAndIsDroppedInTheEnd) {
  constexpr size_t kQuarter = size_t{64} * 1024;
  ASSERT_NO_FATAL_FAILURE(StartBlocked());
  for (int i = 0; i < 4; ++i) {
    EXPECT_FALSE(delivery_.IsFull()) << i;
    Add(HciPacketType::kAclData, kQuarter);
  }
  EXPECT_TRUE(delivery_.IsFull());
  auto added = std::async(std::launch::async, [this] { Add(HciPacketType::kAclData, 1); });
  EXPECT_EQ(added.wait_for(milliseconds(20)), std::future_status::timeout);
  delivery_.TakeAway(kShort);
  added.get();
  EXPECT_TRUE(log_.Has("TakeAway: a received packet is still being delivered, going on without its thread"));
  EXPECT_EQ(delivery_.Dropped(), 5U);
  EXPECT_FALSE(delivery_.IsFull());
  leave_.set_value();
  EXPECT_TRUE(WaitFor([&] { return left_.load(); }));

  // And the next ones are served, and may take the line away from inside.
  std::atomic<bool> gone{false};
  Consumers consumers = Notes();
  consumers.event_cb = [&](const HciPacket&) { delivery_.TakeAway(kLong), gone = true; };
  delivery_.Attach(consumers);
  ASSERT_TRUE(delivery_.Start(receiver_));
  Add(HciPacketType::kEvent, 2);
  EXPECT_TRUE(WaitFor([&] { return gone.load(); }));
  EXPECT_EQ(log_.Count("still being delivered"), 1U);
}

TEST_F(HubDeliveryTest, ATakeAwayWaitsForTheConsumer) {
  ASSERT_NO_FATAL_FAILURE(StartBlocked());
  auto taken = std::async(std::launch::async, [&] { return delivery_.TakeAway(kLong), left_.load(); });
  taken.wait_for(milliseconds(20));  // whoever does not wait has returned by then
  leave_.set_value();
  EXPECT_TRUE(taken.get());
}

TEST(PlatformLinkTest, WithoutTheClientLibraryThereIsNoWay) {
  std::string why;
  EXPECT_EQ(MakePlatformLink()->Connect(&why), HubLink::Connected::kNever);
  EXPECT_EQ(why, "this build is not linked with the sensor hub's client library");
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci::hub
