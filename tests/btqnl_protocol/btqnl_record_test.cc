// What a bring-up does, and what the log and the record tell of it, from its first line to its last.
#include <regex>

#include "btqnl_protocol/btqnl_protocol.h"
#include "conf/conf.h"
#include "shim/shim.h"
#include "support/diagnostics.h"
#include "support/scripted_bring_up.h"
#include "support/test.h"

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

using BtqnlRecordTest = ScriptedBringUpTest;

TEST_F(BtqnlRecordTest, BringsTheControllerUpInOrder) {
  // Write RAM, two bytes; Launch RAM at 0x00200000. Fast mode: only the launch is answered.
  root_.Write("/vendor/firmware/qnlr/QNL_188_U.hcd", std::string("\x4C\xFC\x02\xAA\xBB"
                                                                 "\x4E\xFC\x04\x00\x00\x20\x00",
                                                                 12));
  root_.Write("/proc/bluetooth/sleep/lpm", "");
  root_.Write("/proc/bluetooth/sleep/btwrite", "");
  root_.Write("/sys/power/wake_lock", "");
  root_.Write("/sys/power/wake_unlock", "");
  const Bytes baud_rate = Command(kBaudRate, {0, 0, 0x00, 0x09, 0x3D, 0x00});  // 4000000 bit/s
  const Recorded recorded;

  EXPECT_FALSE(protocol_.GetFirstHciResetFlag());
  auto ready = Initialize();
  ASSERT_EQ(controller_.NextCommand(), Command(kReset));
  EXPECT_EQ(root_.Read("/sys/power/wake_lock"), "bthal_wakelock\n");
  EXPECT_EQ(root_.Read("/sys/power/wake_unlock"), "");
  controller_.Complete(kReset, 0);
  ASSERT_TRUE(controller_.Accepts(Command(kVerboseConfig), {188, 1, 2, 3}));
  ASSERT_TRUE(controller_.Accepts(baud_rate));
  ASSERT_TRUE(controller_.Accepts(Command(kCheckOtp, {0, 0, 0, 0, 0, 0, 0, 0, 0, 1})));
  ASSERT_TRUE(controller_.Accepts(Command(kDownloadConfig, {0x00, 0x01})));
  ASSERT_EQ(controller_.NextCommand(), Command(kMinidriver));
  const auto minidriver = steady_clock::now();
  controller_.Complete(kMinidriver, 0);
  ASSERT_EQ(controller_.NextCommand(), Command(kWriteRam, {0xAA, 0xBB}));
  EXPECT_GE(steady_clock::now() - minidriver, milliseconds(50)) << "it takes that long to start";
  ASSERT_EQ(controller_.NextCommand(), Command(kLaunchRam, {0x00, 0x00, 0x20, 0x00}));
  const auto launch = steady_clock::now();
  controller_.Complete(kLaunchRam, 0);
  ASSERT_EQ(controller_.NextCommand(), Command(kReset));
  EXPECT_GE(steady_clock::now() - launch, milliseconds(250)) << "the patch takes that long to boot";
  controller_.Complete(kReset, 0);
  ASSERT_TRUE(controller_.Accepts(Command(kVerboseConfig), {188, 9, 9, 9}));
  ASSERT_TRUE(controller_.Accepts(baud_rate));
  ASSERT_EQ(controller_.NextCommand(), Command(kLocalName));
  Bytes name(248);
  std::copy_n("QNL188", 6, name.begin());
  controller_.Complete(kLocalName, 0, name);
  ASSERT_TRUE(controller_.Accepts(Command(kSleepMode, {0x01, 0x18, 0x18, 0x01, 0x01, 0x01, 0x01, 0, 0, 0, 0, 0})));

  ASSERT_TRUE(ready.get());
  EXPECT_EQ(protocol_.chip_id(), 188);
  EXPECT_EQ(protocol_.local_name(), "QNL188");
  EXPECT_EQ(root_.Read("/sys/power/wake_unlock"), "bthal_wakelock\n");
  EXPECT_EQ(std::regex_replace(log_.Text({"bthal.qnlproto"}), std::regex("( 00){9,}"), " ..."), R"(
I first_hci_reset
I send_hci_reset
V OnEventReceive: Recv Success VSE 0e 04 01 03 0c 00
D btqnl_send_command_wait_complete: 0x0c03 LEN 0x00 Result 0x00
I send_hci_reset: Done (status:0)
D read_btqnl_chip_id
V OnEventReceive: Recv Success VSE 0e 08 01 79 fc 00 bc 01 02 03
D btqnl_send_command_wait_complete: 0xfc79 LEN 0x00 Result 0x00
I read_btqnl_chip_id: 188
I first_hci_reset: return ret (1), count:0
I baudrate_change: Sending Update Baud Rate (4000000) command
V OnEventReceive: Recv Success VSE 0e 04 01 18 fc 00
D btqnl_send_command_wait_complete: 0xfc18 LEN 0x06 Result 0x00
I baudrate_change: Done
I isOtpWritten Send check OTP command
V OnEventReceive: Recv Success VSE 0e 04 01 2f fe 00
D btqnl_send_command_wait_complete: 0xfe2f LEN 0x0a Result 0x00
I isOtpWritten: Check OTP status response event :0x0e 0x04 0x01 0x2f 0xfe 0x00
I isOtpWritten: OTP is empty!
I Check Firmware file:/vendor/firmware/qnlr/QNL_188_U.hcd
I Firmware file:/vendor/firmware/qnlr/QNL_188_U.hcd be used
I firmware_download: Looking for patchfile [/vendor/firmware/qnlr/QNL_188_U.hcd]
I firmware_download: Patchram file size 12
I enable_fast_download: Sending Set Download Config command
V OnEventReceive: Recv Success VSE 0e 04 01 72 fe 00
D btqnl_send_command_wait_complete: 0xfe72 LEN 0x02 Result 0x00
I enable_fast_download: Set Download Config command returned: 0
I firmware_download: Fast download is supported
I firmware_download: Sending Download Minidrv command
V OnEventReceive: Recv Success VSE 0e 04 01 2e fc 00
D btqnl_send_command_wait_complete: 0xfc2e LEN 0x00 Result 0x00
I firmware_download: AOC passthrough is not supported
I download_direct: Downloading Firmware Patchram data
D download_direct: Sending 0xfc4c 0x02
D btqnl_send_command_no_wait: 0xfc4c LEN 0x02
I download_direct: Sending 0xfc4e 0x04 Launch Ram command
V OnEventReceive: Recv Success VSE 0e 04 01 4e fc 00
D btqnl_send_command_wait_complete: 0xfc4e LEN 0x04 Result 0x00
I baudrate_change: Sending Update Baud Rate (115200) command
I baudrate_change: Done
I firmware_download: Done
I send_hci_reset
V OnEventReceive: Recv Success VSE 0e 04 01 03 0c 00
D btqnl_send_command_wait_complete: 0x0c03 LEN 0x00 Result 0x00
I send_hci_reset: Done (status:0)
D read_btqnl_chip_id
V OnEventReceive: Recv Success VSE 0e 08 01 79 fc 00 bc 09 09 09
D btqnl_send_command_wait_complete: 0xfc79 LEN 0x00 Result 0x00
I read_btqnl_chip_id: 188
I baudrate_change: Sending Update Baud Rate (4000000) command
V OnEventReceive: Recv Success VSE 0e 04 01 18 fc 00
D btqnl_send_command_wait_complete: 0xfc18 LEN 0x06 Result 0x00
I baudrate_change: Done
I btqnl_read_local_name
V OnEventReceive: Recv Success VSE 0e fc 01 14 0c 00 51 4e 4c 31 38 38 ...
D btqnl_send_command_wait_complete: 0x0c14 LEN 0x00 Result 0x00
I btqnl_read_local_name: QNL188
I lpm_setup
V OnEventReceive: Recv Success VSE 0e 04 01 27 fc 00
D btqnl_send_command_wait_complete: 0xfc27 LEN 0x0c Result 0x00
I lpm_setup: LPM Enabled
)");
  EXPECT_EQ(recorded.Text(), R"(
Initialize
btqnl_reset [ IN]
read_btqnl_chip_id, chip_id: 188
btqnl_reset [OUT]
baudrate_change [ IN]
baudrate_change [OUT]
firmware_download [ IN]
firmware_download: firmware file [/vendor/firmware/qnlr/QNL_188_U.hcd] be used
enable_fast_download: Set Download Config command returned: 0x 0
firmware_download: fast download is supported
baudrate_change [ IN]
baudrate_change [OUT]
firmware_download: Done
firmware_download [OUT]
btqnl_reset [ IN]
read_btqnl_chip_id, chip_id: 188
btqnl_reset [OUT]
baudrate_change [ IN]
baudrate_change [OUT]
read_local_name [ IN]
read_local_name [OUT]
LpmSetup: LPM enabling
LpmWakeUp
wakelock_acquire
LpmWakeUp: Assert
)");
  EXPECT_THAT(transport_.Events(), IsEmpty()) << "the stack must not see the answers of bring-up";
  EXPECT_EQ(UartTransport::Deaths(), 0);
}

// Of a step that the controller refuses the log and the record tell what a good bring-up's do not, in this order.
TEST_F(BtqnlRecordTest, ARefusedStepIsToldAtEveryLevel) {
  const auto bring_up = [this](const StatusOf& status_of) {
    log_.Clear();
    const Recorded recorded;
    auto ready = Initialize();
    Play(ready, status_of, {174, 0});
    ready.get();
    return ::android::base::Split(log_.Text({"bthal.qnlproto", "bthal.debug_central"}) + recorded.Text(), "\n");
  };
  protocol_.Shutdown();  // asleep, whatever has been before
  const auto good = bring_up([](uint16_t) { return uint8_t{0}; });
  const struct {
    uint16_t opcode;
    int nth;
    const char* told;
  } kSteps[] = {
      {kReset, 1, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 03 0c 0c ae 00
E btqnl_send_command_wait_complete: 0x0c03 LEN 0x00 Result 0x0c
I send_hci_reset: Done (status:12)
E btqnl_reset: hci_reset fail
E first_hci_reset: fail, Deinitialize & Initialize Controller for recovery
I SetBtUartDebugPort: serial debug port: /dev/logbuffer_ttySAC16
I first_hci_reset: return ret (1), count:1
btqnl_send_command_wait_complete: opcode 0x0c03 LEN 0x00 Result 0x0c
UserialClose [ IN]
UserialClose [OUT]
PowerControl [ IN]
PowerControl [OUT]
PowerControl [ IN]
PowerControl [OUT]
PowerControl [ IN]
PowerControl [OUT]
UserialOpen [ IN]
userial_tty_open: open /dev/ttySAC16
UserialOpen [OUT]
)"},
      {kBaudRate, 1, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 18 fc 0c ae 00
E btqnl_send_command_wait_complete: 0xfc18 LEN 0x06 Result 0x0c
E baudrate_change: Update Baud Rate command failed: 12
I Shutdown
E ReportBqrError: root inflamed event with error_code: (146), error_info: Unable to change to 4M baud rate before downloading firmware
E ReportBqrError: slient recover!
btqnl_send_command_wait_complete: opcode 0xfc18 LEN 0x06 Result 0x0c
baudrate_change: Update Baud Rate command failed: 0x C
Shutdown
LpmTeardown: LPM disabling
LpmTeardown: Unable to close LPM driver, No such file or directory (2)
skip duplicated wakelock_release
Unable to change to 4M baud rate before downloading firmware
)"},
      {kDownloadConfig, 1, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 72 fe 0c ae 00
E btqnl_send_command_wait_complete: 0xfe72 LEN 0x02 Result 0x0c
I enable_fast_download: Set Download Config command returned: 12
I firmware_download: Fast download is not supported
btqnl_send_command_wait_complete: opcode 0xfe72 LEN 0x02 Result 0x0c
enable_fast_download: Set Download Config command returned: 0x C
firmware_download: fast download is not supported
)"},
      {kMinidriver, 1, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 2e fc 0c ae 00
E btqnl_send_command_wait_complete: 0xfc2e LEN 0x00 Result 0x0c
E firmware_download: Download Minidrv command failed: 12
I Shutdown
E ReportBqrError: root inflamed event with error_code: (148), error_info: Unable to download firmware patchram
E ReportBqrError: slient recover!
btqnl_send_command_wait_complete: opcode 0xfc2e LEN 0x00 Result 0x0c
firmware_download: UDownload Minidrv command failed: 0x C
Shutdown
LpmTeardown: LPM disabling
LpmTeardown: Unable to close LPM driver, No such file or directory (2)
skip duplicated wakelock_release
Unable to download firmware patchram
)"},
      {kLaunchRam, 1, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 4e fc 0c ae 00
E btqnl_send_command_wait_complete: 0xfc4e LEN 0x04 Result 0x0c
E download_direct: Failed to write patchram: 12
I Shutdown
E ReportBqrError: root inflamed event with error_code: (148), error_info: Unable to download firmware patchram
E ReportBqrError: slient recover!
btqnl_send_command_wait_complete: opcode 0xfc4e LEN 0x04 Result 0x0c
download_direct: Failed to write patchram: 0xc
Shutdown
LpmTeardown: LPM disabling
LpmTeardown: Unable to close LPM driver, No such file or directory (2)
skip duplicated wakelock_release
Unable to download firmware patchram
)"},
      {kVerboseConfig, 2, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 79 fc 0c ae 00
E btqnl_send_command_wait_complete: 0xfc79 LEN 0x00 Result 0x0c
E read_btqnl_chip_id: Read verbose config failed: 12
I Shutdown
E ReportBqrError: root inflamed event with error_code: (149), error_info: HCI Reset error after firmware downloaded
E ReportBqrError: slient recover!
btqnl_send_command_wait_complete: opcode 0xfc79 LEN 0x00 Result 0x0c
Shutdown
LpmTeardown: LPM disabling
LpmTeardown: Unable to close LPM driver, No such file or directory (2)
skip duplicated wakelock_release
HCI Reset error after firmware downloaded
)"},
      {kBaudRate, 2, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 18 fc 0c ae 00
E btqnl_send_command_wait_complete: 0xfc18 LEN 0x06 Result 0x0c
E baudrate_change: Update Baud Rate command failed: 12
I Shutdown
E ReportBqrError: root inflamed event with error_code: (146), error_info: Unable to change to 4M baud rate after firmware downloaded
E ReportBqrError: slient recover!
btqnl_send_command_wait_complete: opcode 0xfc18 LEN 0x06 Result 0x0c
baudrate_change: Update Baud Rate command failed: 0x C
Shutdown
LpmTeardown: LPM disabling
LpmTeardown: Unable to close LPM driver, No such file or directory (2)
skip duplicated wakelock_release
Unable to change to 4M baud rate after firmware downloaded
)"},
      {kLocalName, 1, R"(
W OnEventReceive: Recv Failure VSE 0e 06 01 14 0c 0c ae 00
E btqnl_send_command_wait_complete: 0x0c14 LEN 0x00 Result 0x0c
E btqnl_read_local_name: Read local name failed: 12
W Initialize: Unable to get local name information
btqnl_send_command_wait_complete: opcode 0x0c14 LEN 0x00 Result 0x0c
Initialize: Unable to get local name information
)"},
  };
  for (const auto& step : kSteps) {
    std::string told = "\n";
    for (const std::string& line : bring_up(Refusal(step.opcode, step.nth))) {
      const bool own = line.starts_with("USERIAL Ready FD");  // a number of this run
      if (!own && std::ranges::find(good, line) == good.end()) told += line + '\n';
    }
    EXPECT_EQ(told, step.told) << step.nth << " of " << step.opcode;
  }
}

TEST_F(BtqnlRecordTest, WhatTheKernelsDriverHasBroughtUpIsLeftAsItIs) {
  uint32_t& type = conf::Config::GetInstance().userial_type;
  const uint32_t uart = std::exchange(type, 0);
  hci::shim::InitializeController();  // which few machines have the socket for
  type = uart;
  log_.Clear();
  const Recorded recorded;
  EXPECT_TRUE(protocol_.Initialize(transport_.flow()));
  EXPECT_EQ(recorded.Text(), "\nInitialize\nInitialize: HCI_UART driver (0) handles BTQNL protocol\n");
  log_.Clear();
  EXPECT_TRUE(protocol_.Initialize(transport_.flow()));
  EXPECT_TRUE(protocol_.baudrate_change(UartBaudRate::kUartBaudRate3000000, false));
  EXPECT_EQ(log_.Text(), R"(
I Initialize: Do no-op for USERIAL ( 0 )
D baudrate_change: Userial port does not support baudrate change
)");
  EXPECT_FALSE(protocol_.AcceleratedReset());
  EXPECT_TRUE(log_.Has("AcceleratedReset: a controller without the vendor's commands cannot be kept up: set AccelBt"));
  EXPECT_THAT(controller_.NextCommand(milliseconds(0)), IsEmpty());
}

}  // namespace
}  // namespace android::hardware::bluetooth
