// The real service at its end of the wire: the low-power link, judged by the order of events at the board, and what a
// broken controller does.
#include "support/board_session.h"
#include "support/diagnostics.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Bytes kReadAddress = {0x09, 0x10, 0};
constexpr uint8_t kEventType = 4;

class WireTest : public BoardSessionTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(StartBoard());
    ASSERT_NO_FATAL_FAILURE(OpenSession());
  }
};

TEST_F(WireTest, TheLineIsUpBeforeEveryByteAndTheLockIsHeldExactlyWhileItIs) {
  for (size_t sleep = 1; sleep <= 3; ++sleep) {
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(Exchange(kReadAddress));
    ASSERT_TRUE(WaitFor([&] { return Count(*board_, WireEvent::kWakeLine, 0) >= sleep; }));
  }
  EXPECT_THAT(ReportOf(*hal_), ContainsRegex("Transmissions in the link's awake periods: [1-9][0-9]*; the last from "
                                             "[^:]+:.* ms, [1-9][0-9]* transmissions\n"));
  ASSERT_TRUE(Exchange(kReadAddress));

  bool up = false;
  bool slept = false;
  bool locked = false;
  for (const JournalEntry& entry : board_->Journal()) {
    if (entry.event == WireEvent::kLostBytes || entry.event == WireEvent::kProtocolError) ADD_FAILURE() << entry.text;
    if (entry.event == WireEvent::kWakeLock) {
      EXPECT_TRUE(!slept || !locked) << "not released while the line was low";
      locked = true;
    }
    if (entry.event == WireEvent::kWakeUnlock) {
      EXPECT_TRUE(!slept || !up) << "released while the line was up";
      locked = false;
    }
    if (entry.event == WireEvent::kWakeLine) {
      up = entry.value == 1;
      EXPECT_TRUE(!slept || !up || locked) << "raised without the lock";
      slept = slept || !up;
    }
    EXPECT_TRUE(entry.event != WireEvent::kReceived || !slept || (up && locked)) << "a byte came to a sleeping link";
  }
}

// Nobody sends anything. With a client, and without one under a controller that is kept up for the next.
TEST_F(WireTest, AHangUpWhileIdleIsReportedAndEndsTheService) {
  board_->HangUpUart();
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 4, 0x58, 5, 0, 0x84}));
  EXPECT_EQ(service_->CountInLog("OnDataReady: Unexpected EOF reading the packet type!"), 1U);
  EXPECT_EQ(service_->CountInLog("(132), error_info: Host HCI H4 TX Error: the port has hung up"), 1U);

  ASSERT_NO_FATAL_FAILURE(OpenSession());
  ASSERT_TRUE(hal_->close().isOk());
  board_->HangUpUart();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("(132), error_info: Host HCI H4 TX Error: the port has hung up"), 2U);
}

TEST_F(WireTest, ARootInflammationLeavesItsFilesAndTheServiceLives) {
  const Bytes root_inflammation = {0xFF, 4, 0x58, 5, 0, 0x30};
  board_->SendPacket(kEventType, root_inflammation);
  ASSERT_TRUE(Exchange(kReadAddress));  // it has been dealt with
  EXPECT_TRUE(client_->WaitForEvent(root_inflammation));
  EXPECT_EQ(CrashInfos(root_).size(), 1U);
  EXPECT_EQ(CoreDumps(root_).size(), 1U);
  EXPECT_TRUE(service_->IsAlive());
}

}  // namespace
}  // namespace bthal::test
