// What a bring-up does, and what the log and the record tell of it, from its first line to its last.
#include <android-base/stringprintf.h>

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

using base::StringPrintf;
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
  const std::string log = log_.Text({"bthal.qnlproto"});
  EXPECT_THAT(log, HasSubstr("\nV OnEventReceive: Recv Success VSE 0e 08 01 79 fc 00 bc 01 02 03\n"
                             "D btqnl_send_command_wait_complete: 0xfc79 LEN 0x00 Result 0x00\n"));
  const std::regex answer("V OnEventReceive: Recv Success VSE 0e .*\nD btqnl_send_command_wait_complete: .* 0x00\n");
  EXPECT_EQ(CountIn(log, "V OnEventReceive: Recv Success VSE"), 12U);
  EXPECT_EQ(std::regex_replace(log, answer, ""), R"(
I first_hci_reset
I send_hci_reset
I send_hci_reset: Done (status:0)
D read_btqnl_chip_id
I read_btqnl_chip_id: 188
I first_hci_reset: return ret (1), count:0
I baudrate_change: Sending Update Baud Rate (4000000) command
I baudrate_change: Done
I isOtpWritten Send check OTP command
I isOtpWritten: Check OTP status response event :0x0e 0x04 0x01 0x2f 0xfe 0x00
I isOtpWritten: OTP is empty!
I Check Firmware file:/vendor/firmware/qnlr/QNL_188_U.hcd
I Firmware file:/vendor/firmware/qnlr/QNL_188_U.hcd be used
I firmware_download: Looking for patchfile [/vendor/firmware/qnlr/QNL_188_U.hcd]
I firmware_download: Patchram file size 12
I enable_fast_download: Sending Set Download Config command
I enable_fast_download: Set Download Config command returned: 0
I firmware_download: Fast download is supported
I firmware_download: Sending Download Minidrv command
I firmware_download: AOC passthrough is not supported
I download_direct: Downloading Firmware Patchram data
D download_direct: Sending 0xfc4c 0x02
D btqnl_send_command_no_wait: 0xfc4c LEN 0x02
I download_direct: Sending 0xfc4e 0x04 Launch Ram command
I baudrate_change: Sending Update Baud Rate (115200) command
I baudrate_change: Done
I firmware_download: Done
I send_hci_reset
I send_hci_reset: Done (status:0)
D read_btqnl_chip_id
I read_btqnl_chip_id: 188
I baudrate_change: Sending Update Baud Rate (4000000) command
I baudrate_change: Done
I btqnl_read_local_name
I btqnl_read_local_name: QNL188
I lpm_setup
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

// What log and record tell of a step that the controller refuses, beside what a good bring-up's do.
struct RefusedStep {
  uint16_t opcode;
  int nth;
  int length;  // of its parameters
  const char* logged;
  const char* recorded;
  int code;  // with which it ends; 0: it goes on
  const char* info;
};

constexpr char kShutdownRecorded[] =
    "Shutdown\nLpmTeardown: LPM disabling\n"
    "LpmTeardown: Unable to close LPM driver, No such file or directory (2)\nskip duplicated wakelock_release\n";

std::string ToldOf(const RefusedStep& step) {
  const std::string command = StringPrintf("0x%04x LEN 0x%02x Result 0x0c\n", step.opcode, step.length);
  std::string end_logged, end_recorded;
  if (step.code != 0) {
    end_logged = StringPrintf(
        "I Shutdown\nE ReportBqrError: root inflamed event with error_code: (%d), error_info: %s\n"
        "E ReportBqrError: slient recover!\n",
        step.code, step.info);
    end_recorded = std::string(kShutdownRecorded) + step.info + "\n";
  }
  return StringPrintf("\nW OnEventReceive: Recv Failure VSE 0e 06 01 %02x %02x 0c ae 00\n", step.opcode & 0xFF,
                      step.opcode >> 8) +
         "E btqnl_send_command_wait_complete: " + command + step.logged + end_logged +
         "btqnl_send_command_wait_complete: opcode " + command + step.recorded + end_recorded;
}

constexpr char kNoSpeed[] = "E baudrate_change: Update Baud Rate command failed: 12\n";
constexpr char kNoSpeedRecorded[] = "baudrate_change: Update Baud Rate command failed: 0x C\n";
constexpr char kNoPatch[] = "Unable to download firmware patchram";

const RefusedStep kRefusedSteps[] = {
    {kReset, 1, 0, R"(I send_hci_reset: Done (status:12)
E btqnl_reset: hci_reset fail
E first_hci_reset: fail, Deinitialize & Initialize Controller for recovery
I SetBtUartDebugPort: serial debug port: /dev/logbuffer_ttySAC16
I first_hci_reset: return ret (1), count:1
)",
     R"(UserialClose [ IN]
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
)",
     0, ""},
    {kBaudRate, 1, 6, kNoSpeed, kNoSpeedRecorded, 146, "Unable to change to 4M baud rate before downloading firmware"},
    {kDownloadConfig, 1, 2,
     "I enable_fast_download: Set Download Config command returned: 12\n"
     "I firmware_download: Fast download is not supported\n",
     "enable_fast_download: Set Download Config command returned: 0x C\n"
     "firmware_download: fast download is not supported\n",
     0, ""},
    {kMinidriver, 1, 0, "E firmware_download: Download Minidrv command failed: 12\n",
     "firmware_download: UDownload Minidrv command failed: 0x C\n", 148, kNoPatch},
    {kLaunchRam, 1, 4, "E download_direct: Failed to write patchram: 12\n",
     "download_direct: Failed to write patchram: 0xc\n", 148, kNoPatch},
    {kVerboseConfig, 2, 0, "E read_btqnl_chip_id: Read verbose config failed: 12\n", "", 149,
     "HCI Reset error after firmware downloaded"},
    {kBaudRate, 2, 6, kNoSpeed, kNoSpeedRecorded, 146, "Unable to change to 4M baud rate after firmware downloaded"},
    {kLocalName, 1, 0,
     "E btqnl_read_local_name: Read local name failed: 12\nW Initialize: Unable to get local name information\n",
     "Initialize: Unable to get local name information\n", 0, ""},
};

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
  for (const RefusedStep& step : kRefusedSteps) {
    std::string told = "\n";
    for (const std::string& line : bring_up(Refusal(step.opcode, step.nth))) {
      const bool own = line.starts_with("USERIAL Ready FD");  // a number of this run
      if (!own && std::ranges::find(good, line) == good.end()) told += line + '\n';
    }
    EXPECT_EQ(told, ToldOf(step)) << step.nth << " of " << step.opcode;
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
