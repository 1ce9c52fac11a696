// Whole bring-ups: the real service, the real Binder, the board's journal as witness.
#include <android-base/stringprintf.h>

#include "support/board_session.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using ::android::base::StringPrintf;
using sim::BoardOptions;

using Words = std::vector<std::string>;

// A command as the tables below name it: "0C03", "records", and the speed for the one that sets it.
std::string Word(const Bytes& command) {
  const int opcode = command[0] | command[1] << 8;
  if (opcode == 0xFC4C) return "records";
  if (opcode != 0xFC18) return StringPrintf("%04X", opcode);
  const uint32_t rate = command[5] | command[6] << 8 | command[7] << 16 | static_cast<uint32_t>(command[8]) << 24;
  return StringPrintf("FC18=%u", rate);
}

// The commands on the wire, the run of patch records as one word.
Words WordsOnTheWire(const Board& board) {
  Words words;
  for (const Bytes& command : board.Commands()) {
    const std::string word = Word(command);
    if (word != "records" || words.empty() || words.back() != word) words.push_back(word);
  }
  return words;
}

class BringUpTest : public BoardSessionTest {
 protected:
  void StartBoardWith(BoardOptions options, bool fast_download) {
    if (!fast_download) root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf", "FastDownloadDisable = 1\n");
    StartBoard(std::move(options));
  }

  // How often the controller was given power that it did not have.
  size_t PowerOns() const { return Count(*board_, WireEvent::kPowerOn, 1); }
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
  StartBoardWith(options, chip.fast_download);
  if (chip.otp_property != nullptr) SetProperty("persist.bluetooth.otp.status", chip.otp_property);
  if (chip.selection != nullptr) SetProperty("persist.bluetooth.firmware.selection", chip.selection);
  StartService();
  ASSERT_TRUE(service_->WaitForLog("BTQNL controller is ready"));

  Words expected = {"0C03", "FC79", "FC18=4000000"};
  expected.insert(expected.end(), chip.download.begin(), chip.download.end());
  for (const char* word : {"0C03", "FC79", "FC18=4000000", "0C14", "FC27"}) expected.emplace_back(word);
  EXPECT_EQ(WordsOnTheWire(*board_), expected);
  EXPECT_THAT(Texts(*board_, WireEvent::kPatchLaunched), ElementsAre(chip.patch));
  EXPECT_EQ(GetProperty("persist.bluetooth.firmware.download", ""), chip.patch);
  EXPECT_EQ(Count(*board_, WireEvent::kProtocolError), 0U);
  EXPECT_EQ(PowerOns(), 1U);
  const bool fast = chip.fast_download && chip.chip_id != 12;
  EXPECT_EQ(service_->CountInLog("firmware_download: Fast download is supported"), fast ? 1U : 0U);

  // A client adds the accelerated reset and the address, and no more.
  ASSERT_NO_FATAL_FAILURE(FindHal());
  ASSERT_NO_FATAL_FAILURE(Initialize());
  for (const char* word : {"0C03", "FC79", "FC01"}) expected.emplace_back(word);
  EXPECT_EQ(WordsOnTheWire(*board_), expected);
  EXPECT_EQ(Count(*board_, WireEvent::kLostBytes), 0U);
}

const Words kFastAsked = {"FE72", "FC2E", "records", "FC4E"};
const Words kNotFastAsked = {"FC2E", "records", "FC4E"};
const Words kOtpAndFastAsked = {"FE2F", "FE72", "FC2E", "records", "FC4E"};
const Words kOtpAsked = {"FE2F", "FC2E", "records", "FC4E"};

const ChipCase kChips[] = {
    {"Chip188", 188, false, nullptr, nullptr, true, kOtpAndFastAsked, "QNL_188_U.hcd"},
    {"Chip188WithOtp", 188, true, nullptr, nullptr, true, kOtpAndFastAsked, "QNL_188_S.hcd"},
    {"Chip188KnownWritten", 188, false, "Written", nullptr, true, kFastAsked, "QNL_188_S.hcd"},
    {"Chip188Slow", 188, false, nullptr, nullptr, false, kOtpAsked, "QNL_188_U.hcd"},
    {"Chip170", 170, false, nullptr, nullptr, true, kNotFastAsked, "QNL.hcd"},
    {"Chip170Slow", 170, false, nullptr, nullptr, false, kNotFastAsked, "QNL.hcd"},
    {"Chip174", 174, false, nullptr, nullptr, true, kFastAsked, "QNL_174.hcd"},
    {"Chip175", 175, false, nullptr, nullptr, true, kFastAsked, "QNL.hcd"},
    {"Chip181", 181, false, nullptr, "BTFW_D.hcd", true, kFastAsked, "BTFW_D.hcd"},
    {"Chip181Own", 181, false, nullptr, nullptr, true, kFastAsked, "QNL_181.hcd"},
    {"Chip185", 185, false, nullptr, "BTFW_X.hcd", true, kFastAsked, "QNL_185.hcd"},
    {"Chip200", 200, false, nullptr, nullptr, true, kFastAsked, "QNL_200.hcd"},
    {"Chip12", 12, false, nullptr, nullptr, true, kNotFastAsked, "QNL.hcd"},
};

INSTANTIATE_TEST_SUITE_P(Chips, ChipTest, ::testing::ValuesIn(kChips),
                         [](const auto& info) { return info.param.name; });

// How a bring-up fails, and what is then said.
struct Failure {
  const char* name;
  const char* fault;
  bool fast_download;
  uint8_t code;
  const char* function;  // the kind's own, in the trace of the death
  const char* info;
  size_t power_ons;
  const char* last_command;  // nothing comes after it
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

class FailureTest : public BringUpTest, public ::testing::WithParamInterface<Failure> {
 protected:
  // With accelerated Bluetooth-on off, the controller comes up for a client.
  void Start(bool accelerated) {
    Accelerate(accelerated);
    BoardOptions options;
    options.faults = {GetParam().fault};
    StartBoardWith(options, GetParam().fast_download);
    StartService();
  }
};

TEST_P(FailureTest, WithoutClientItEndsQuietlyAndWorksAfterTheRestart) {
  Start(true);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_THAT(service_->Log(), HasSubstr(StringPrintf("ReportBqrError: root inflamed event with error_code: (%d), "
                                                      "error_info: %s",
                                                      GetParam().code, GetParam().info)));
  EXPECT_THAT(service_->Log(), HasSubstr("ReportBqrError: slient recover!"));
  WaitFor([&] { return PowerOns() >= GetParam().power_ons; });  // the last one the board may still have to read
  EXPECT_EQ(PowerOns(), GetParam().power_ons);
  EXPECT_EQ(WordsOnTheWire(*board_).back(), GetParam().last_command);
  EXPECT_TRUE(std::filesystem::is_empty(root_.path() + "/data/vendor/ssrdump/coredump"));
  // A later start finds a sound controller and works.
  board_->ClearFaults();
  OpenSession();
}

TEST_P(FailureTest, AClientIsToldBeforeTheEnd) {
  Start(false);
  ASSERT_NO_FATAL_FAILURE(FindHal());
  hal_->initialize(client_);  // its result is lost with a service that dies
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 0x04, 0x58, 0x05, 0x00, GetParam().code}));
  EXPECT_THAT(client_->Statuses(), IsEmpty());
  EXPECT_THAT(service_->Log(), HasSubstr(StringPrintf("Bluetooth HAL crash with error code 0, vendor error code %d, "
                                                      "extra info: %s",
                                                      GetParam().code, GetParam().info)));
  EXPECT_THAT(service_->Log(), HasSubstr(std::string("debug::") + GetParam().function));
}

constexpr char kFirstReset[] = "HCI Reset error before downloading firmware";
constexpr char kPatch[] = "Unable to download firmware patchram";
const Failure kFailures[] = {
    {"FirstResetTwice", "wrong-status,opcode=reset,count=2", true, 0x93, "HostResetBeforeFw", kFirstReset, 3, "0C03"},
    {"NeverAnswers", "no-answer,count=always", true, 0x93, "HostResetBeforeFw", kFirstReset, 3, "0C03"},
    {"NoChipId", "wrong-status,opcode=version,count=2", true, 0x93, "HostResetBeforeFw", kFirstReset, 3, "FC79"},
    {"FirstSpeed", "wrong-status,opcode=speed", true, 0x92, "HostChangeBaudrate",
     "Unable to change to 4M baud rate before downloading firmware", 1, "FC18=4000000"},
    {"Minidriver", "wrong-status,opcode=minidriver", true, 0x94, "HostDownloadFw", kPatch, 1, "FC2E"},
    {"Record", "wrong-status,opcode=record,after=17", false, 0x94, "HostDownloadFw", kPatch, 1, "records"},
    {"Launch", "wrong-status,opcode=launch", true, 0x94, "HostDownloadFw", kPatch, 1, "FC4E"},
    {"SecondReset", "wrong-status,opcode=reset,after=1", true, 0x95, "HostResetAfterFw",
     "HCI Reset error after firmware downloaded", 1, "0C03"},
    {"SecondSpeed", "wrong-status,opcode=speed,after=1", true, 0x92, "HostChangeBaudrate",
     "Unable to change to 4M baud rate after firmware downloaded", 1, "FC18=4000000"},
};

INSTANTIATE_TEST_SUITE_P(Failures, FailureTest, ::testing::ValuesIn(kFailures),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace bthal::test
