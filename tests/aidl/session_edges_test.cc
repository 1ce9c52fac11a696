// What happens at the edges of a session: callers that are nobody yet, or no longer, and clients and controllers that
// keep a dying service waiting.
#include "support/board_session.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Bytes kReset = {0x03, 0x0C, 0};
const Bytes kUnknownCommand = {0x99, 0xFC, 0};

class SessionEdgesTest : public BoardSessionTest {
 protected:
  void Start(bool accelerated, const std::vector<std::string>& faults = {}) {
    Accelerate(accelerated);
    StartBoard(SmallBoard(faults));
    StartService();
    ASSERT_NO_FATAL_FAILURE(FindHal());
  }

  bool BoardGotResets(long count) const {
    return WaitFor([&] { return std::ranges::count(board_->Commands(), kReset) >= count; });
  }

  ClientProcess other_;
};

TEST_F(SessionEdgesTest, WhoHasNoSessionCannotSend) {
  ASSERT_NO_FATAL_FAILURE(Start(true));
  ASSERT_TRUE(service_->WaitForLog("perform_init: BTQNL controller is ready"));
  EXPECT_TRUE(hal_->sendHciCommand(kUnknownCommand).isOk());
  ASSERT_NO_FATAL_FAILURE(Initialize());
  ASSERT_TRUE(hal_->close().isOk());
  EXPECT_TRUE(hal_->sendHciCommand(kUnknownCommand).isOk());
  ASSERT_TRUE(hal_->initialize(client_).isOk());
  EXPECT_TRUE(Exchange(kReset));
  EXPECT_THAT(board_->Commands(), Not(Contains(kUnknownCommand)));
}

// Its successor would otherwise be taken for a second client, which ends the service.
TEST_F(SessionEdgesTest, ACallerThatDiesWhileItWaitsIsNobody) {
  ASSERT_NO_FATAL_FAILURE(Start(true, {"no-answer,opcode=reset"}));
  ASSERT_TRUE(BoardGotResets(1));
  auto doomed = std::async(std::launch::async, [&] { return other_.Initialize(); });
  ASSERT_TRUE(service_->WaitForLog("Init thread is running. Waiting for it to exit"));
  other_.Kill();
  ASSERT_NO_FATAL_FAILURE(Initialize());
  EXPECT_TRUE(Exchange(kReset));
  EXPECT_TRUE(service_->IsAlive());
  EXPECT_TRUE(service_->WaitForLog("initialize_impl: the caller has died meanwhile, nothing to initialize"));
  doomed.wait();
}

TEST_F(SessionEdgesTest, ASecondClientIsToldAndEndsTheServiceReturnOrNot) {
  ASSERT_NO_FATAL_FAILURE(Start(true));
  ASSERT_EQ(other_.Initialize(), static_cast<int>(HalStatus::SUCCESS));
  std::promise<void> leave;
  client_->OnStatus([left = leave.get_future().share()](HalStatus) { left.wait(); });
  EXPECT_TRUE(hal_->initialize(client_).isOk());
  EXPECT_TRUE(service_->IsAlive()) << "dies a second later";
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_THAT(client_->Statuses(), ElementsAre(HalStatus::ALREADY_INITIALIZED));
  EXPECT_EQ(service_->CountInLog("initialize_impl: already initialized, don't allow multiple clients"), 1u);
  EXPECT_EQ(service_->CountInLog("initialize_impl: make hal crash for recovering caller's abnormal behavior!"), 1u);
  EXPECT_EQ(service_->CountInLog("thread_perform_self_kill self kill"), 1u);
  leave.set_value();
}

// The recovery of the first reset closes the port under the receive thread, which stands in the client's callback.
TEST_F(SessionEdgesTest, AClientThatDoesNotReturnKeepsNoFailedBringUpAlive) {
  ASSERT_NO_FATAL_FAILURE(Start(false, {"no-answer,opcode=reset,count=always"}));
  other_.BlockInNextEvent();
  auto blocked = std::async(std::launch::async, [&] { return other_.Initialize(); });
  ASSERT_TRUE(BoardGotResets(1));
  board_->SendPacket(4, {0x3E, 2, 0x7F, 0x01});
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_EQ(service_->CountInLog("root inflamed event with error_code: (147)"), 1u);
  other_.Kill();
  blocked.wait();
}

// A port that hangs up under the first reset is opened anew, as after any failure of that reset.
TEST_F(SessionEdgesTest, AHangUpDuringABringUpIsTheBringUpsToMend) {
  ASSERT_NO_FATAL_FAILURE(Start(false, {"hang-up,opcode=reset"}));
  ASSERT_TRUE(hal_->initialize(client_).isOk());
  EXPECT_TRUE(client_->WaitForStatus(HalStatus::SUCCESS));
  EXPECT_EQ(service_->CountInLog("first_hci_reset: return ret (1), count:1"), 1u);
}

// The last step of a bring-up does without its answer. Nobody is to find a controller ready whose port is gone.
TEST_F(SessionEdgesTest, AHangUpAtTheEndOfABringUpIsReportedAtItsEnd) {
  ASSERT_NO_FATAL_FAILURE(Start(true, {"hang-up,opcode=sleep-mode"}));
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("BTQNL controller is ready"), 0u);
  EXPECT_EQ(service_->CountInLog("(132), error_info: Host HCI H4 TX Error: the port has hung up"), 1u);
}

TEST_F(SessionEdgesTest, ABigHammerWaitsForNoClient) {
  ASSERT_NO_FATAL_FAILURE(Start(true));
  ASSERT_EQ(other_.Initialize(), static_cast<int>(HalStatus::SUCCESS));
  other_.BlockInNextEvent();
  board_->SendPacket(4, {0x3E, 2, 0x7F, 0x01});
  ASSERT_TRUE(other_.WaitUntilBlocked());
  board_->SendCoexEvent({0x01, 0x02, 0x01, 0x43});
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("TerminationDeadline"), 0u);
  EXPECT_EQ(service_->CountInLog("BtSend msg: 0x81"), 1u);
  EXPECT_EQ(service_->CountInLog("root inflamed event with error_code: (127)"), 1u);
}

// A close waits for the thread that is about to end the process, and may not end it by force before.
TEST_F(SessionEdgesTest, ABigHammerEndsTheServiceAlsoUnderAClose) {
  ASSERT_NO_FATAL_FAILURE(Start(false));
  std::promise<void> leave;
  client_->OnEvent([left = leave.get_future().share()](const Bytes&) { left.wait(); });
  ASSERT_NO_FATAL_FAILURE(Initialize());
  board_->SendCoexEvent({0x01, 0x02, 0x01, 0x42});
  ASSERT_TRUE(service_->WaitForLog("closeHci: hci_handle_ = nullptr"));
  hal_->close();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("root inflamed event with error_code: (127)"), 1u);
  leave.set_value();
}

TEST_F(SessionEdgesTest, SigtermWaitsForNoSilentController) {
  ASSERT_NO_FATAL_FAILURE(Start(false));
  ASSERT_NO_FATAL_FAILURE(Initialize());
  ASSERT_TRUE(hal_->close().isOk());
  const auto resets = std::ranges::count(board_->Commands(), kReset);
  ASSERT_NO_FATAL_FAILURE(AddFault("no-answer,opcode=reset,count=always"));
  auto later = std::async(std::launch::async, [&] { return hal_->initialize(client_).isOk(); });
  ASSERT_TRUE(BoardGotResets(resets + 1));
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("TerminationDeadline"), 0u);
  EXPECT_EQ(service_->CountInLog("root inflamed event"), 0u);
  later.wait();
}

}  // namespace
}  // namespace bthal::test
