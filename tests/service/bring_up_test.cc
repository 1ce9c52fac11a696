// Whole bring-ups: the real service, the real Binder, the board's journal as witness.
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "support/board_session.h"

namespace bthal::test {
namespace {

using ::android::base::SetProperty;
using ::android::base::StringPrintf;
using sim::BoardOptions;
using sim::JournalEntry;
using sim::WireEvent;
using ::testing::HasSubstr;
using HalStatus = ::aidl::android::hardware::bluetooth::Status;

using Words = std::vector<std::string>;

constexpr uint16_t kPatchRecord = 0xFC4C;

// A command as the tables below name it: "0C03", and the speed for the one that sets it.
std::string Word(const Bytes& command) {
  const int opcode = command[0] | command[1] << 8;
  if (opcode != 0xFC18) return StringPrintf("%04X", opcode);
  const uint32_t rate = command[5] | command[6] << 8 | command[7] << 16 | static_cast<uint32_t>(command[8]) << 24;
  return StringPrintf("FC18=%u", rate);
}

// The commands on the wire, the run of patch records as one word.
Words WordsOnTheWire(const sim::Board& board) {
  Words words;
  for (const Bytes& command : board.Commands()) {
    std::string word = Word(command);
    if (word == StringPrintf("%04X", kPatchRecord)) word = "records";
    if (word != "records" || words.empty() || words.back() != word) words.push_back(word);
  }
  return words;
}

class BringUpTest : public BoardSessionTest {
 protected:
  void StartBoardWith(const std::vector<std::string>& faults) {
    BoardOptions options;
    options.faults = faults;
    StartBoard(options);
  }

  // Accelerated Bluetooth-on off: the controller comes up for a client, who learns what becomes of it.
  void BringUpForClient() {
    SetProperty("persist.bluetooth.disable.accelerate.bt.on", "true");
    StartService();
    ASSERT_NO_FATAL_FAILURE(FindHal());
    hal_->initialize(client_);  // its result is lost with a service that dies
  }

  size_t CountOnTheBoard(WireEvent event, const std::string& text = "") const {
    const auto journal = board_->Journal();
    return static_cast<size_t>(std::count_if(journal.begin(), journal.end(), [&](const JournalEntry& entry) {
      return entry.event == event && (text.empty() || entry.text == text);
    }));
  }

  // Power-on edges: how often the controller was given power that it did not have.
  size_t PowerOns() const {
    const auto journal = board_->Journal();
    return static_cast<size_t>(std::count_if(journal.begin(), journal.end(), [](const JournalEntry& entry) {
      return entry.event == WireEvent::kPowerOn && entry.value == 1;
    }));
  }

  // A later start finds a sound controller and works.
  void ExpectWorksAfterRestart() {
    board_->ClearFaults();
    SetProperty("persist.bluetooth.disable.accelerate.bt.on", "false");
    client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
    OpenSession();
  }
};

// Which commands a chip gets, and which patch.
struct ChipCase {
  const char* name;
  uint8_t chip_id;
  bool otp_written;
  const char* otp_property;  // null: unset
  const char* selection;     // null: unset
  bool fast_download;
  Words download;  // from the first speed change to the launch
  const char* patch;
};

void PrintTo(const ChipCase& chip, std::ostream* out) { *out << chip.name; }

class ChipTest : public BringUpTest, public ::testing::WithParamInterface<ChipCase> {};

TEST_P(ChipTest, PutsExactlyItsCommandsOnTheWire) {
  const ChipCase& chip = GetParam();
  BoardOptions options;
  options.chip_id = chip.chip_id;
  options.otp_written = chip.otp_written;
  StartBoard(options);
  if (!chip.fast_download) root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf", "FastDownloadDisable = 1\n");
  if (chip.otp_property != nullptr) SetProperty("persist.bluetooth.otp.status", chip.otp_property);
  if (chip.selection != nullptr) SetProperty("persist.bluetooth.firmware.selection", chip.selection);
  StartService();
  ASSERT_TRUE(service_->WaitForLog("BTQNL controller is ready"));

  Words expected = {"0C03", "FC79", "FC18=4000000"};
  expected.insert(expected.end(), chip.download.begin(), chip.download.end());
  for (const char* word : {"0C03", "FC79", "FC18=4000000", "0C14", "FC27"}) expected.emplace_back(word);
  EXPECT_EQ(WordsOnTheWire(*board_), expected);
  EXPECT_EQ(CountOnTheBoard(WireEvent::kPatchLaunched, chip.patch), 1U);
  EXPECT_EQ(android::base::GetProperty("persist.bluetooth.firmware.download", ""), chip.patch);
  EXPECT_EQ(CountOnTheBoard(WireEvent::kProtocolError), 0U);
  EXPECT_EQ(PowerOns(), 1U);

  // A client adds the accelerated reset and the address, and no more.
  ASSERT_NO_FATAL_FAILURE(FindHal());
  ASSERT_TRUE(hal_->initialize(client_).isOk());
  EXPECT_TRUE(client_->WaitForStatus(HalStatus::SUCCESS));
  for (const char* word : {"0C03", "FC79", "FC01"}) expected.emplace_back(word);
  EXPECT_EQ(WordsOnTheWire(*board_), expected);
  EXPECT_EQ(CountOnTheBoard(WireEvent::kLostBytes), 0U);
}

const Words kFastAsked = {"FE72", "FC2E", "records", "FC4E"};
const Words kNotFastAsked = {"FC2E", "records", "FC4E"};
const Words kOtpAndFastAsked = {"FE2F", "FE72", "FC2E", "records", "FC4E"};
const Words kOtpAsked = {"FE2F", "FC2E", "records", "FC4E"};

INSTANTIATE_TEST_SUITE_P(
    Chips, ChipTest,
    ::testing::Values(ChipCase{"Chip188", 188, false, nullptr, nullptr, true, kOtpAndFastAsked, "QNL_188_U.hcd"},
                      ChipCase{"Chip188WithOtp", 188, true, nullptr, nullptr, true, kOtpAndFastAsked, "QNL_188_S.hcd"},
                      ChipCase{"Chip188KnownWritten", 188, false, "Written", nullptr, true, kFastAsked,
                               "QNL_188_S.hcd"},
                      ChipCase{"Chip188Slow", 188, false, nullptr, nullptr, false, kOtpAsked, "QNL_188_U.hcd"},
                      ChipCase{"Chip170", 170, false, nullptr, nullptr, true, kNotFastAsked, "QNL.hcd"},
                      ChipCase{"Chip170Slow", 170, false, nullptr, nullptr, false, kNotFastAsked, "QNL.hcd"},
                      ChipCase{"Chip174", 174, false, nullptr, nullptr, true, kFastAsked, "QNL_174.hcd"},
                      ChipCase{"Chip181", 181, false, nullptr, "BTFW_D.hcd", true, kFastAsked, "BTFW_D.hcd"},
                      ChipCase{"Chip185", 185, false, nullptr, "BTFW_X.hcd", true, kFastAsked, "QNL_185.hcd"},
                      ChipCase{"Chip200", 200, false, nullptr, nullptr, true, kFastAsked, "QNL_200.hcd"},
                      ChipCase{"Chip12", 12, false, nullptr, nullptr, true, kNotFastAsked, "QNL.hcd"}),
    [](const auto& info) { return info.param.name; });

// How a bring-up fails, and what is then said.
struct FailureCase {
  const char* name;
  const char* fault;
  bool fast_download;
  uint8_t code;
  const char* function;  // the kind's own, in the trace of the death
  const char* info;
  size_t power_ons;
};

void PrintTo(const FailureCase& failure, std::ostream* out) { *out << failure.name; }

class FailureTest : public BringUpTest, public ::testing::WithParamInterface<FailureCase> {
 protected:
  void Prepare() {
    const FailureCase& failure = GetParam();
    StartBoardWith({failure.fault});
    if (!failure.fast_download)
      root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf", "FastDownloadDisable = 1\n");
  }
};

TEST_P(FailureTest, WithoutClientItEndsQuietlyAndWorksAfterTheRestart) {
  Prepare();
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), StringPrintf("signal %d", SIGKILL));
  EXPECT_THAT(service_->Log(), HasSubstr(StringPrintf("ReportBqrError: root inflamed event with error_code: (%d), "
                                                      "error_info: %s",
                                                      GetParam().code, GetParam().info)));
  EXPECT_THAT(service_->Log(), HasSubstr("ReportBqrError: slient recover!"));
  EXPECT_EQ(PowerOns(), GetParam().power_ons);
  EXPECT_TRUE(std::filesystem::is_empty(root_.path() + "/data/vendor/ssrdump/coredump"));
  ExpectWorksAfterRestart();
}

TEST_P(FailureTest, AClientIsToldBeforeTheEnd) {
  Prepare();
  BringUpForClient();
  EXPECT_EQ(service_->WaitForEndText(), StringPrintf("signal %d", SIGABRT));
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 0x04, 0x58, 0x05, 0x00, GetParam().code}));
  EXPECT_THAT(client_->Statuses(), ::testing::IsEmpty());
  EXPECT_THAT(service_->Log(), HasSubstr(StringPrintf("Bluetooth HAL crash with error code 0, vendor error code %d, "
                                                      "extra info: %s",
                                                      GetParam().code, GetParam().info)));
  EXPECT_THAT(service_->Log(), HasSubstr(std::string("debug::") + GetParam().function));
}

INSTANTIATE_TEST_SUITE_P(
    Failures, FailureTest,
    ::testing::Values(FailureCase{"FirstResetTwice", "wrong-status,opcode=reset,count=2", true, 0x93,
                                  "HostResetBeforeFw", "HCI Reset error before downloading firmware", 3},
                      FailureCase{"NeverAnswers", "no-answer,count=always", true, 0x93, "HostResetBeforeFw",
                                  "HCI Reset error before downloading firmware", 3},
                      FailureCase{"NoChipId", "wrong-status,opcode=version,count=2", true, 0x93, "HostResetBeforeFw",
                                  "HCI Reset error before downloading firmware", 3},
                      FailureCase{"FirstSpeed", "wrong-status,opcode=speed", true, 0x92, "HostChangeBaudrate",
                                  "Unable to change to 4M baud rate before downloading firmware", 1},
                      FailureCase{"Minidriver", "wrong-status,opcode=minidriver", true, 0x94, "HostDownloadFw",
                                  "Unable to download firmware patchram", 1},
                      FailureCase{"Record", "wrong-status,opcode=record,after=17", false, 0x94, "HostDownloadFw",
                                  "Unable to download firmware patchram", 1},
                      FailureCase{"Launch", "wrong-status,opcode=launch", true, 0x94, "HostDownloadFw",
                                  "Unable to download firmware patchram", 1},
                      FailureCase{"SecondReset", "wrong-status,opcode=reset,after=1", true, 0x95, "HostResetAfterFw",
                                  "HCI Reset error after firmware downloaded", 1},
                      FailureCase{"SecondSpeed", "wrong-status,opcode=speed,after=1", true, 0x92, "HostChangeBaudrate",
                                  "Unable to change to 4M baud rate after firmware downloaded", 1}),
    [](const auto& info) { return info.param.name; });

TEST_F(BringUpTest, AFirstResetThatFailsOnceCostsOnePowerCycle) {
  StartBoardWith({"wrong-status,opcode=reset"});
  StartService();
  ASSERT_TRUE(service_->WaitForLog("BTQNL controller is ready"));
  EXPECT_EQ(PowerOns(), 2U);
  EXPECT_THAT(service_->Log(), HasSubstr("first_hci_reset: return ret (1), count:1"));
  const Words words = WordsOnTheWire(*board_);
  ASSERT_GT(words.size(), 3U);
  EXPECT_EQ(Words(words.begin(), words.begin() + 3), (Words{"0C03", "0C03", "FC79"}));
}

TEST_F(BringUpTest, RefusedSleepModeAndMissingNameAreNotFatal) {
  StartBoardWith({"wrong-status,opcode=sleep-mode", "wrong-status,opcode=local-name"});
  StartService();
  ASSERT_TRUE(service_->WaitForLog("BTQNL controller is ready"));
  EXPECT_THAT(service_->Log(), HasSubstr("Initialize: Unable to get local name information"));
  EXPECT_THAT(service_->Log(), HasSubstr("lpm_setup: Unable to enable LPM controller:"));
  ASSERT_NO_FATAL_FAILURE(FindHal());
  ASSERT_TRUE(hal_->initialize(client_).isOk());
  EXPECT_TRUE(client_->WaitForStatus(HalStatus::SUCCESS));
}

TEST_F(BringUpTest, WithoutAPatchFileTheDownloadFailsByName) {
  BoardOptions options;
  options.furnish = false;
  StartBoard(options);
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), StringPrintf("signal %d", SIGKILL));
  EXPECT_THAT(service_->Log(), HasSubstr("firmware_download: Unable to open patchfile [/vendor/firmware/qnlr/]"));
}

TEST_F(BringUpTest, ADeviceWithoutPowerSwitchOrSleepDriverStillComesUp) {
  StartBoard(BoardOptions{});
  // The board keeps its ends; the service no longer finds the nodes.
  ASSERT_EQ(rename(root_.Below("/proc/bluetooth/sleep/lpm").c_str(), root_.Below("/gone/lpm").c_str()), 0);
  StartService();
  ASSERT_TRUE(service_->WaitForLog("BTQNL controller is ready"));
  EXPECT_THAT(service_->Log(), HasSubstr("LpmSetup: Unable to open LPM driver (/proc/bluetooth/sleep/lpm)"));
  EXPECT_EQ(WordsOnTheWire(*board_).back(), "0C14");
}

}  // namespace
}  // namespace bthal::test
