// A controller that takes no more bytes: the board's process is stopped, so that its side of the line fills up, while
// the real service and a client go on.
#include <sys/mman.h>

#include "support/board_session.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Bytes kReset = {0x03, 0x0C, 0x00};
const Bytes kResetDone = {0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00};
// More than the line's buffers hold, in packets of 1 KiB.
constexpr size_t kFlood = 400;

Bytes AclPacket() {
  Bytes packet = {0x40, 0x00, 0x00, 0x04};
  packet.resize(4 + 1024, 0x55);
  return packet;
}

class StuckWriteTest : public BoardSessionTest {
 protected:
  void Start(bool accelerated) {
    Accelerate(accelerated);
    process_ = Spawn({BTHAL_PROGRAM, "board", "--root", root_.path()}, null_.get());
    ASSERT_TRUE(WaitFor([&] { return access(root_.Below("/dev/ttySAC16").c_str(), F_OK) == 0; }));
    OpenSession("info");
  }

  // From here on the controller takes nothing, and a sender is stuck, or will be.
  void StallASender() {
    process_.Signal(SIGSTOP);
    sender_ = std::thread([this, hal = hal_] {
      while (sent_ < kFlood && hal->sendAclData(AclPacket()).isOk()) ++sent_;
    });
    size_t before = 0;
    ASSERT_TRUE(WaitFor([&] {
      const size_t now = sent_;
      const bool stands = now != 0 && now == before;
      before = now;
      return stands;
    }));
    ASSERT_LT(sent_, kFlood);
  }

  unique_fd null_{memfd_create("board", MFD_CLOEXEC)};
  tool::Child process_;
  std::atomic<size_t> sent_{0};
  std::thread sender_;
};

class StoppedBoardTest : public StuckWriteTest, public ::testing::WithParamInterface<bool> {};

// With accelerated Bluetooth-on the close resets the controller, and one that does not answer ends the process, as any
// failed close does; without, nothing is asked of the controller. Either way the next client is served.
TEST_P(StoppedBoardTest, ACloseEndsAndTheNextClientIsServed) {
  ASSERT_NO_FATAL_FAILURE(Start(GetParam()));
  ASSERT_NO_FATAL_FAILURE(StallASender());
  EXPECT_THAT(ReportOf(*hal_), HasSubstr("Anchors' History"));
  const bool closed = hal_->close().isOk();
  sender_.join();
  EXPECT_EQ(closed, !GetParam());
  process_.Signal(SIGCONT);
  if (closed) {
    EXPECT_EQ(service_->CountInLog("BluetoothHci::close() Done"), 1u);
    ASSERT_TRUE(hal_->initialize(client_).isOk());
    ASSERT_TRUE(WaitFor([&] { return client_->Statuses().size() == 2; }));
    EXPECT_EQ(client_->Statuses().back(), HalStatus::SUCCESS);
  } else {
    EXPECT_EQ(service_->WaitForEndText(), "signal 6");
    EXPECT_EQ(service_->CountInLog("error_code: (153), error_info: Accelerated shutdown failed"), 1u);
    client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
    ASSERT_NO_FATAL_FAILURE(OpenSession("info"));
  }
  hal_->sendHciCommand(kReset);
  EXPECT_TRUE(client_->WaitForEvent(kResetDone));
}

INSTANTIATE_TEST_SUITE_P(Acceleration, StoppedBoardTest, ::testing::Bool());

TEST_F(StuckWriteTest, FiveSecondsWithoutProgressAreADeadController) {
  ASSERT_NO_FATAL_FAILURE(Start(false));
  ASSERT_NO_FATAL_FAILURE(StallASender());
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 0x04, 0x58, 0x05, 0x00, 0x84}));
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  sender_.join();
  EXPECT_THAT(service_->Log(),
              ContainsRegex("error_code: \\(132\\), error_info: Host HCI H4 TX Error: ACL packet of handle "
                            "0x040: [0-9]+/1029 bytes written, no progress for 5000 ms"));
  EXPECT_EQ(service_->CountInLog("ReportBqrError: root inflamed event with error_code: (132)"), 1u);
}

TEST_F(StuckWriteTest, SigtermWaitsForNoSender) {
  ASSERT_NO_FATAL_FAILURE(Start(true));
  ASSERT_NO_FATAL_FAILURE(StallASender());
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("TerminationDeadline"), 0u);
  sender_.join();
}

}  // namespace
}  // namespace bthal::test
