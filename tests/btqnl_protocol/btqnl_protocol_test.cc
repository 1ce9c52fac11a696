#include "btqnl_protocol/btqnl_protocol.h"

#include "btqnl_protocol/commands.h"
#include "shim/shim.h"
#include "support/scripted_bring_up.h"
#include "support/test.h"

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

// 4000000 bit/s.
const Bytes kBaudRateCommand = Command(kBaudRate, {0, 0, 0x00, 0x09, 0x3D, 0x00});

class BtQnlProtocolTest : public ScriptedBringUpTest {
 protected:
  std::future<uint8_t> SendAndWait(uint16_t opcode, Bytes parameters = {}) {
    return std::async(std::launch::async, [this, opcode, parameters = std::move(parameters)] {
      return btqnl_send_command_wait_complete(transport_.flow(), opcode, static_cast<uint8_t>(parameters.size()),
                                              parameters.data());
    });
  }
};

TEST_F(BtQnlProtocolTest, GoesOnWithoutALocalNameAndWithoutSleepMode) {
  auto ready = Initialize();
  EXPECT_EQ(Play(ready, Refusal(kLocalName)).back(), kLocalName);  // and no Set Sleep Mode without the kernel's driver
  EXPECT_TRUE(ready.get());
  EXPECT_EQ(UartTransport::Deaths(), 0);
}

TEST_F(BtQnlProtocolTest, FirstResetRecoversByPowerCyclesTwiceAtMost) {
  {
    auto ready = Initialize();
    ASSERT_EQ(controller_.NextCommand(), Command(kReset));
    EXPECT_TRUE(protocol_.GetFirstHciResetFlag());
    const auto refusal = steady_clock::now();
    controller_.Complete(kReset, 0x03);
    ASSERT_EQ(controller_.NextCommand(), Command(kReset));  // on the reopened line
    EXPECT_GE(steady_clock::now() - refusal, milliseconds(100 + 50)) << "before the power cycle, and for the new port";
    EXPECT_FALSE(protocol_.GetFirstHciResetFlag());
    controller_.Complete(kReset, 0);
    ASSERT_TRUE(controller_.Accepts(Command(kVerboseConfig), {kPlainChip}));
    ASSERT_EQ(controller_.NextCommand(), kBaudRateCommand);
    EXPECT_TRUE(log_.Has("first_hci_reset: return ret (1), count:1"));
    controller_.Complete(kBaudRate, 0x0C);
    EXPECT_FALSE(ready.get());
    EXPECT_THAT(controller_.NextCommand(milliseconds(0)), IsEmpty());
    EXPECT_FALSE(protocol_.read_local_name()) << "still holds the flow control";
  }
  {
    auto ready = Initialize();
    ASSERT_EQ(controller_.NextCommand(), Command(kReset));
    // No answer at all. What was outstanding is forgotten with the power, or the next Reset would wait behind it.
    ASSERT_TRUE(controller_.Accepts(Command(kReset)));
    ASSERT_TRUE(
        controller_.Refuses(Command(kVerboseConfig), 0x01));  // a chip that cannot say what it is has not been reset
    EXPECT_FALSE(ready.get());
  }
  EXPECT_TRUE(log_.Has("first_hci_reset: return ret (0), count:2"));
  EXPECT_EQ(log_.Count("fail, Deinitialize & Initialize Controller for recovery"), 3u);
  EXPECT_TRUE(log_.Has("error_code: (147), error_info: HCI Reset error before downloading firmware"));
  EXPECT_THAT(controller_.NextCommand(milliseconds(0)), IsEmpty()) << "a third reset";
  EXPECT_FALSE(protocol_.GetFirstHciResetFlag());
}

TEST_F(BtQnlProtocolTest, ACommandEndsWithItsStatusAndClaimsItsAnswerOnce) {
  {
    auto status = SendAndWait(0xFC99, {1, 2, 3});
    ASSERT_TRUE(controller_.Refuses(Command(0xFC99, {1, 2, 3}), 0x12));
    EXPECT_EQ(status.get(), 0x12);
    EXPECT_TRUE(log_.Has("btqnl_send_command_wait_complete: 0xfc99 LEN 0x03 Result 0x12"));
  }
  {
    auto status = SendAndWait(0xFC99);
    ASSERT_EQ(controller_.NextCommand(), Command(0xFC99));
    controller_.SendEvent({0x0E, 3, 1, 0x99, 0xFC});  // no status byte, no return parameters
    EXPECT_EQ(status.get(), 0x1F) << "unspecified error";
  }
  EXPECT_THAT(transport_.Events(), IsEmpty());
  controller_.Complete(0xFC99, 0);
  EXPECT_TRUE(EventsReach(1));

  EXPECT_EQ(btqnl_send_command_wait_complete(nullptr, 0xFC99, 0, nullptr), kStatusNoFlowControl);
  EXPECT_TRUE(log_.Has("btqnl_send_command_wait_complete: Unable to send command"));
  btqnl_send_command_no_wait(nullptr, 0xFC99, 0, nullptr);
  EXPECT_THAT(controller_.NextCommand(milliseconds(0)), IsEmpty());
}

// Both answers are read before the thread that waits has come to remove its watcher.
TEST_F(BtQnlProtocolTest, OfTwoAnswersTheFirstCounts) {
  for (size_t round = 1; round <= 20; ++round) {
    auto status = SendAndWait(0xFC99);
    ASSERT_EQ(controller_.NextCommand(), Command(0xFC99));
    controller_.SendEvent({0x0E, 4, 1, 0x99, 0xFC, 0x12, /*another packet:*/ 0x04, 0x0E, 4, 1, 0x99, 0xFC, 0});
    ASSERT_EQ(status.get(), 0x12);
    ASSERT_TRUE(EventsReach(round));
  }
}

TEST_F(BtQnlProtocolTest, TheLastAnswerIsThatOfTheLastWaitAlone) {
  {
    auto status = SendAndWait(0xFC99);
    ASSERT_TRUE(controller_.Accepts(Command(0xFC99), {7}));
    ASSERT_EQ(status.get(), 0);
  }
  const hci::HciPacket answer = btqnl_last_command_complete(0xFC99);
  EXPECT_EQ(Bytes(answer.begin(), answer.end()), (Bytes{0x0E, 5, 1, 0x99, 0xFC, 0, 7}));
  EXPECT_TRUE(btqnl_last_command_complete(0xFC98).empty()) << "another command's";

  // The same command again, unanswered: the earlier answer must not pass for its own.
  auto status = SendAndWait(0xFC99);
  ASSERT_EQ(controller_.NextCommand(), Command(0xFC99));
  EXPECT_EQ(status.get(), kStatusTimedOut);
  EXPECT_TRUE(btqnl_last_command_complete(0xFC99).empty());
  EXPECT_TRUE(log_.Has("btqnl_send_command_wait_complete: 0xfc99 LEN 0x00 Result 0x03"));

  controller_.Complete(0xFC99, 0);  // late: nobody waits any more
  EXPECT_TRUE(EventsReach(1));
}

TEST_F(BtQnlProtocolTest, AHaltEndsTheWaitAtOnceAndADeadHandleIsNone) {
  auto ready = Initialize();
  ASSERT_TRUE(controller_.Accepts(Command(kReset)));
  ASSERT_TRUE(controller_.Accepts(Command(kVerboseConfig), {kPlainChip}));
  ASSERT_EQ(controller_.NextCommand(), kBaudRateCommand);
  transport_.Close();
  EXPECT_FALSE(ready.get());
  EXPECT_TRUE(log_.Has("btqnl_send_command_wait_complete: 0xfc18 LEN 0x06 Result 0x03"));
  log_.Clear();
  EXPECT_FALSE(protocol_.btqnl_reset());
  EXPECT_FALSE(protocol_.baudrate_change(UartBaudRate::kUartBaudRate115200, true));
  EXPECT_FALSE(protocol_.firmware_download());
  EXPECT_FALSE(protocol_.read_local_name());
  EXPECT_FALSE(protocol_.AcceleratedReset());
  EXPECT_EQ(log_.Text({"bthal.qnlproto"}), R"(
E btqnl_reset: Userial port is not ready
E baudrate_change: Userial port is not ready
E firmware_download: Userial is not ready
I btqnl_read_local_name
W btqnl_send_command_wait_complete: Unable to send command
E btqnl_read_local_name: Read local name failed: 2
I AcceleratedReset
E btqnl_reset: Userial port is not ready
E AcceleratedReset: hci_reset fail, try to get fw debug dump
I send_debug_info_cmd
W btqnl_send_command_no_wait: Unable to send command
I send_debug_info_cmd: Done (status:0)
)");
}

TEST_F(BtQnlProtocolTest, AFailedAcceleratedResetAsksForTheDebugInformation) {
  auto ready = Initialize();
  Play(ready);
  ASSERT_TRUE(ready.get());

  auto reset = Start([this] { return protocol_.AcceleratedReset(); });
  EXPECT_THAT(Play(reset), ElementsAre(kReset, kVerboseConfig));
  EXPECT_TRUE(reset.get());

  const auto start = steady_clock::now();
  reset = Start([this] { return protocol_.AcceleratedReset(); });
  ASSERT_TRUE(controller_.Refuses(Command(kReset), 0x03));
  ASSERT_EQ(controller_.NextCommand(), Command(kDebugInformation));
  EXPECT_FALSE(reset.get());
  EXPECT_GE(steady_clock::now() - start, milliseconds(500));
}

TEST_F(BtQnlProtocolTest, ChangesTheSpeedOfBothEndsOrOfTheHostAlone) {
  auto ready = Initialize();
  Play(ready);
  ASSERT_TRUE(ready.get());

  auto changed = Start([this] { return protocol_.baudrate_change(UartBaudRate::kUartBaudRate3000000, false); });
  ASSERT_TRUE(controller_.Accepts(Command(kBaudRate, {0, 0, 0xC0, 0xC6, 0x2D, 0x00})));
  EXPECT_TRUE(changed.get());

  // The controller may be asked for more than the host's port can do: then the port stays as it is.
  changed = Start([this] { return protocol_.baudrate_change(UartBaudRate::kUartBaudRate6000000, false); });
  ASSERT_TRUE(controller_.Accepts(Command(kBaudRate, {0, 0, 0x80, 0x8D, 0x5B, 0x00})));
  EXPECT_TRUE(changed.get());
  EXPECT_TRUE(log_.Has("BaudrateChange: Baud rate (6000000) unsupported"));

  EXPECT_TRUE(protocol_.baudrate_change(UartBaudRate::kUartBaudRate115200, true));
  EXPECT_FALSE(protocol_.baudrate_change(static_cast<UartBaudRate>(921600), false));
  EXPECT_TRUE(log_.Has("baudrate_change: Baud rate (921600) unsupported"));
  EXPECT_THAT(controller_.NextCommand(milliseconds(0)), IsEmpty());
}

}  // namespace
}  // namespace android::hardware::bluetooth
