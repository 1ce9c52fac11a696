
#include <numeric>
#include <regex>

#include "btqnl_protocol/btqnl_protocol.h"
#include "support/diagnostics.h"
#include "support/scripted_bring_up.h"
#include "support/test.h"

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

const Bytes kWrite = Command(kWriteRam, {0x11, 0x22, 0x33});
const Bytes kEmptyRecord = Command(0xFC90);
const Bytes kLaunch = Command(kLaunchRam, {0x00, 0x00, 0x20, 0x00});
const Bytes kOwnLaunch = Command(kLaunchRam, {0xFF, 0xFF, 0xFF, 0xFF});

std::string Text(const std::vector<Bytes>& records) {
  std::string text;
  for (const Bytes& record : records) text.append(record.begin(), record.end());
  return text;
}

class BtqnlFirmwareTest : public ScriptedBringUpTest {
 protected:
  std::future<bool> Download(const std::string& patch, bool fast) {
    root_.Write("/patch.hcd", patch);
    return Start([this, fast] { return protocol_.download_direct(Open().get(), fast); });
  }
  unique_fd Open() const { return unique_fd(open((root_.path() + "/patch.hcd").c_str(), O_RDONLY | O_CLOEXEC)); }

  // A whole bring-up, which gives the singleton its flow control; what it does is tested elsewhere.
  void SetUp() override {
    auto ready = Initialize();
    Play(ready);
    ASSERT_TRUE(ready.get());
  }

  // The reset controller says it is this chip.
  void Identify(uint8_t chip_id) {
    auto reset = Start([this] { return protocol_.btqnl_reset(); });
    ASSERT_TRUE(controller_.Accepts(Command(kReset)));
    ASSERT_TRUE(controller_.Accepts(Command(kVerboseConfig), {chip_id}));
    ASSERT_TRUE(reset.get());
  }

  // Starts a download that the controller refuses at the minidriver, and returns the patch file that was chosen by
  // then. `otp` answers Check OTP.
  std::string ChosenFile(uint8_t chip_id, uint8_t otp = 0) {
    Identify(chip_id);
    SetProperty("persist.bluetooth.firmware.download", "");
    auto done = Start([this] { return protocol_.firmware_download(); });
    opcodes_ = Play(done,
                    [otp](uint16_t opcode) {
                      return opcode == kMinidriver ? kDisallowed : opcode == kCheckOtp ? otp : uint8_t{0};
                    },
                    {});
    EXPECT_FALSE(done.get());
    return GetProperty("persist.bluetooth.firmware.download", "");
  }

  std::vector<uint16_t> opcodes_;  // of the last ChosenFile
};

TEST_F(BtqnlFirmwareTest, ChoosesThePatchByOtpAndRemembersAWrittenOne) {
  root_.Write("/vendor/firmware/qnlr/QNL_188_U.hcd", Text({kLaunch}));
  root_.Write("/vendor/firmware/qnlr/QNL_188_S.hcd", Text({kLaunch}));
  EXPECT_EQ(ChosenFile(188, 0), "QNL_188_U.hcd");
  EXPECT_EQ(GetProperty("persist.bluetooth.otp.status", ""), "Empty");
  EXPECT_TRUE(log_.Has("isOtpWritten: OTP is empty!"));
  EXPECT_EQ(ChosenFile(188, 0x01), "QNL_188_U.hcd") << "only a refusal to look means that there is something";
  auto written = Start([this] { return protocol_.isOtpWritten(); });
  ASSERT_EQ(OpcodeOf(controller_.NextCommand()), kCheckOtp);
  controller_.SendEvent({0x0E, 4, 2, 0x2F, 0xFE, kDisallowed});  // two credits: not how that refusal looks
  EXPECT_FALSE(written.get());
  EXPECT_EQ(ChosenFile(188, kDisallowed), "QNL_188_S.hcd");
  EXPECT_EQ(GetProperty("persist.bluetooth.otp.status", ""), "Written");
  EXPECT_THAT(opcodes_, ElementsAre(kCheckOtp, kDownloadConfig, kMinidriver));
  EXPECT_EQ(ChosenFile(188, 0), "QNL_188_S.hcd");
  EXPECT_THAT(opcodes_, ElementsAre(kDownloadConfig, kMinidriver)) << "asked although it is known";
  EXPECT_TRUE(log_.Has("isOtpWritten: Check OTP status command error: 12"));
  EXPECT_TRUE(log_.Has("isOtpWritten: Check OTP status response event :0x0e 0x04 0x01 0x2f 0xfe 0x0c"));
  EXPECT_EQ(log_.Count("isOtpWritten: OTP is not empty!"), 1u);
}

TEST_F(BtqnlFirmwareTest, SomeChipsHaveAPatchOfTheirOwn) {
  constexpr uint8_t kOthers[] = {kPlainChip, 173, 188};
  for (const uint8_t chip : {174, 181, 185, 200}) {
    const std::string own = "QNL_" + std::to_string(chip) + ".hcd";
    EXPECT_EQ(ChosenFile(chip), "QNL.hcd") << "for want of " << own;
    root_.Write("/vendor/firmware/qnlr/" + own, Text({kLaunch}));
    EXPECT_EQ(ChosenFile(chip), own);
  }
  for (const uint8_t chip : kOthers) {
    root_.Write("/vendor/firmware/qnlr/QNL_" + std::to_string(chip) + ".hcd", Text({kLaunch}));
    EXPECT_EQ(ChosenFile(chip), "QNL.hcd") << int{chip};
  }
}

TEST_F(BtqnlFirmwareTest, ObeysASelectionThatExistsAndRefusesWithoutAUsableFile) {
  SetProperty("persist.bluetooth.firmware.selection", "BTFW_D.hcd");
  EXPECT_EQ(ChosenFile(kPlainChip), "QNL.hcd");
  root_.Write("/vendor/firmware/qnlr/BTFW_D.hcd", Text({kLaunch}));
  EXPECT_EQ(ChosenFile(kPlainChip), "BTFW_D.hcd");
  SetProperty("persist.bluetooth.firmware.selection", "../../../../etc/passwd");
  EXPECT_EQ(ChosenFile(kPlainChip), "QNL.hcd");

  const std::string patch = root_.path() + "/vendor/firmware/qnlr/QNL.hcd";
  ASSERT_EQ(unlink(patch.c_str()), 0);
  EXPECT_FALSE(protocol_.firmware_download());
  EXPECT_TRUE(log_.Has("firmware_download: Unable to open patchfile [/vendor/firmware/qnlr/]"));

  // Neither a file that nobody could mean nor one that never ends gets as far as the controller.
  root_.Write("/vendor/firmware/qnlr/QNL.hcd", Text({kLaunch}));
  ASSERT_EQ(truncate(patch.c_str(), 16 * 1024 * 1024 + 1), 0);
  EXPECT_FALSE(protocol_.firmware_download());
  EXPECT_TRUE(log_.Has("/QNL.hcd has 16777217 bytes, more than the 16777216 that a patch may have"));
  ASSERT_EQ(unlink(patch.c_str()), 0);
  ASSERT_EQ(mkfifo(patch.c_str(), 0600), 0);
  EXPECT_FALSE(protocol_.firmware_download());
  EXPECT_EQ(log_.Count("firmware_download: Unable to open patchfile [/vendor/firmware/qnlr/QNL.hcd]"), 2u);
  const unique_fd endless(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(protocol_.download_direct(endless.get(), false));
  EXPECT_TRUE(log_.Has("download_direct: more than the 16777216 bytes that a patch may have"));
  EXPECT_THAT(controller_.NextCommand(std::chrono::milliseconds(0)), IsEmpty());
}

TEST_F(BtqnlFirmwareTest, SendsRecordByRecordAndLaunchesOnce) {
  {
    auto done = Download(Text({kWrite, kEmptyRecord, kLaunch}), false);
    ASSERT_EQ(controller_.NextCommand(), kWrite);
    EXPECT_THAT(controller_.NextCommand(std::chrono::milliseconds(0)), IsEmpty()) << "did not wait for the answer";
    controller_.Complete(kWriteRam, 0);
    ASSERT_TRUE(controller_.Accepts(kEmptyRecord));
    ASSERT_TRUE(controller_.Accepts(kLaunch));
    EXPECT_TRUE(done.get());
  }
  {  // fast, and without a launch of its own
    auto done = Download(Text({kWrite, kEmptyRecord, kWrite}), true);
    ASSERT_EQ(controller_.NextCommand(), kWrite);
    ASSERT_EQ(controller_.NextCommand(), kEmptyRecord);
    ASSERT_EQ(controller_.NextCommand(), kWrite);
    ASSERT_TRUE(controller_.Accepts(kOwnLaunch));
    EXPECT_TRUE(done.get());
  }
  EXPECT_THAT(controller_.NextCommand(std::chrono::milliseconds(0)), IsEmpty());
}

TEST_F(BtqnlFirmwareTest, StopsAtARefusedRecordAndAtARefusedLaunch) {
  const Recorded recorded;
  log_.Clear();
  auto done = Download(Text({kWrite, kEmptyRecord}), false);
  ASSERT_TRUE(controller_.Refuses(kWrite, 0x12));
  EXPECT_FALSE(done.get());

  done = Download(Text({kWrite}), true);
  ASSERT_EQ(controller_.NextCommand(), kWrite);
  ASSERT_TRUE(controller_.Refuses(kOwnLaunch, 0x12));
  EXPECT_FALSE(done.get());

  protocol_.Shutdown();
  EXPECT_FALSE(protocol_.download_passthrough(Open().get()));
  EXPECT_FALSE(protocol_.download_passthrough(-1));
  EXPECT_FALSE(protocol_.download_direct(-1, false));
  EXPECT_EQ(log_.Text({"bthal.qnlproto"}), R"(
I download_direct: Downloading Firmware Patchram data
D download_direct: Sending 0xfc4c 0x03
W OnEventReceive: Recv Failure VSE 0e 04 01 4c fc 12
E btqnl_send_command_wait_complete: 0xfc4c LEN 0x03 Result 0x12
E download_direct: Failed to write patchram: 18
I download_direct: Downloading Firmware Patchram data
D download_direct: Sending 0xfc4c 0x03
D btqnl_send_command_no_wait: 0xfc4c LEN 0x03
I download_direct: Sending Launch Ram command
W OnEventReceive: Recv Failure VSE 0e 04 01 4e fc 12
E btqnl_send_command_wait_complete: 0xfc4e LEN 0x04 Result 0x12
E download_direct: Launch Ram command failed: 18
I Shutdown
I download_passthrough: Downloading Firmware PatchRam data
I download_passthrough: Sending 7 bytes of PatchRam data
E download_passthrough: Failed to write PatchRam
I download_passthrough: Downloading Firmware PatchRam data
E download_passthrough: Failed to read patchram preamble (-1): Bad file descriptor (9)
I download_direct: Downloading Firmware Patchram data
E download_direct: Failed to read patchram preamble (-1): Bad file descriptor (9)
)");
  EXPECT_EQ(recorded.Text(), R"(
btqnl_send_command_wait_complete: opcode 0xfc4c LEN 0x03 Result 0x12
download_direct: Failed to write patchram: 0x12
btqnl_send_command_wait_complete: opcode 0xfc4e LEN 0x04 Result 0x12
download_direct: Launch Ram command failed: 0x12
Shutdown
LpmTeardown: LPM disabling
LpmTeardown: Unable to close LPM driver, No such file or directory (2)
skip duplicated wakelock_release
download_passthrough: Failed to write PatchRam
)");
  EXPECT_THAT(controller_.NextCommand(std::chrono::milliseconds(0)), IsEmpty());
}

TEST_F(BtqnlFirmwareTest, RefusesAPatchCutAnywhereAfterWhatWasWhole) {
  const std::string whole = Text({kWrite, kLaunch});
  for (size_t size = 1; size < whole.size(); ++size) {
    if (size == kWrite.size()) continue;  // a cut between records is a whole patch
    SCOPED_TRACE(size);
    log_.Clear();
    auto done = Download(whole.substr(0, size), true);
    EXPECT_FALSE(done.get());
    const bool in_second = size > kWrite.size();
    const size_t left = in_second ? size - kWrite.size() : size;
    EXPECT_TRUE(
        log_.Has(left < 3 ? "download_direct: Failed to read patchram preamble (" + std::to_string(left) + ")"
                          : "download_direct: Failed to read patchram parameters (" + std::to_string(left - 3) + ")"));
    if (in_second) {
      EXPECT_EQ(controller_.NextCommand(), kWrite);
    }
  }
  EXPECT_THAT(controller_.NextCommand(std::chrono::milliseconds(0)), IsEmpty());
}

TEST_F(BtqnlFirmwareTest, HandsBatchesOverAndTheLaunchAlone) {
  Bytes parameters(255);
  std::iota(parameters.begin(), parameters.end(), uint8_t{0});
  const auto write = [&](size_t size) { return Command(kWriteRam, {parameters.begin(), parameters.begin() + size}); };
  // 125 records of the largest size make 32375 bytes. The batch goes out at the record that brings it to 32508.
  std::vector<Bytes> records(125, write(255));
  records.push_back(write(129));  // makes 32508
  records.insert(records.end(), 125, write(255));
  records.push_back(write(128));  // makes 32507
  records.push_back(write(255));  // makes 32766
  records.push_back(write(1));
  records.push_back(kLaunch);
  root_.Write("/patch.hcd", Text(records));
  auto done = Start([this] { return protocol_.download_passthrough(Open().get()); });
  for (const Bytes& record : records) ASSERT_EQ(controller_.NextCommand(), record);
  controller_.Complete(kLaunchRam, 0);
  EXPECT_TRUE(done.get());
  const std::string log =
      std::regex_replace(log_.Text({"bthal.qnlproto"}), std::regex("in [0-9]+ milli"), "in some milli");
  EXPECT_EQ(log.substr(log.find("\nI download_passthrough: Downl")), R"(
I download_passthrough: Downloading Firmware PatchRam data
I download_passthrough: Sending 32508 bytes of PatchRam data
I download_passthrough: Processed 32508 bytes of PatchRam in some milliseconds
I download_passthrough: Sending 32766 bytes of PatchRam data
I download_passthrough: Processed 32766 bytes of PatchRam in some milliseconds
I download_passthrough: Sending 5 bytes of PatchRam data
I download_passthrough: Processed 5 bytes of PatchRam in some milliseconds
I download_passthrough: Sending 0xfc4e 0x04 Launch Ram command
V OnEventReceive: Recv Success VSE 0e 04 01 4e fc 00
D btqnl_send_command_wait_complete: 0xfc4e LEN 0x04 Result 0x00
I download_passthrough: total bytes sent 65287
)");
  EXPECT_EQ(log_.Count("SendBatch unsupported"), 1u) << "asked again although it is known";
}

TEST_F(BtqnlFirmwareTest, HandsOverALaunchOfItsOwnWhereThePatchHasNone) {
  root_.Write("/patch.hcd", Text({kWrite}));
  auto done = Start([this] { return protocol_.download_passthrough(Open().get()); });
  ASSERT_EQ(controller_.NextCommand(), kWrite);
  ASSERT_TRUE(controller_.Accepts(kOwnLaunch));
  EXPECT_TRUE(done.get());
  EXPECT_TRUE(log_.Has("download_passthrough: Sending Launch Ram command"));
  EXPECT_TRUE(log_.Has("download_passthrough: total bytes sent 15"));

  done = Start([this] { return protocol_.download_passthrough(Open().get()); });
  ASSERT_EQ(controller_.NextCommand(), kWrite);
  ASSERT_TRUE(controller_.Refuses(kOwnLaunch, 0x12));
  EXPECT_FALSE(done.get());
}

}  // namespace
}  // namespace android::hardware::bluetooth
