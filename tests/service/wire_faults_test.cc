// What a broken controller does to the real service, and what the service makes of it.
#include "support/board_session.h"
#include "support/diagnostics.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Bytes kReadAddress = {0x09, 0x10, 0};
constexpr uint8_t kEventType = 4;

class WireFaultsTest : public BoardSessionTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(StartBoard());
    ASSERT_NO_FATAL_FAILURE(OpenSession());
  }
};

// Nobody sends anything. With a client, and without one under a controller that is kept up for the next.
TEST_F(WireFaultsTest, AHangUpWhileIdleIsReportedAndEndsTheService) {
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

TEST_F(WireFaultsTest, ARootInflammationLeavesItsFilesAndTheServiceLives) {
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
