// The virtual board from power-on to a sleeping controller, brought up by hand.
#include "sim/controller/firmware/patch_file.h"
#include "support/board_host.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Packet kOtpParameters{0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

std::string NameIn(const Packet& complete) {
  return complete.size() < 8 ? "no answer" : reinterpret_cast<const char*>(complete.data() + 7);
}

TEST_F(BoardTest, IsSilentWithoutPower) {
  Board& board = Start();
  host_.Open();
  host_.Send(kReset);
  ASSERT_TRUE(Await(board, WireEvent::kLostBytes));
  EXPECT_THAT(Texts(board, WireEvent::kLostBytes), ElementsAre("the power is off"));
  board.SendPacket(0x04, {0x10, 0x01, 0x00});
  EXPECT_THAT(host_.Read(kSoonMs), IsEmpty());
}

TEST_F(BoardTest, APowerCycleForgetsPatchSpeedAddressAndSleepModeButAResetDoesNot) {
  sim::BoardOptions options = SmallBoard(root_);
  options.address = "01:02:03:04:05:06";
  options.falls_asleep_after = std::chrono::milliseconds(0);
  Start(options);
  host_.BringUp();
  host_.ChangeSpeed(3000000);
  EXPECT_EQ(Complete(kReadBdAddr, {0, 6, 5, 4, 3, 2, 1}), host_.Command(kReadBdAddr));
  EXPECT_EQ(Complete(kWriteBdAddr, {0}), host_.Command(kWriteBdAddr, {9, 8, 7, 6, 5, 4}));
  host_.WriteNode("/proc/bluetooth/sleep/btwrite", "1");
  host_.Command(kSetSleepMode, kSleepParameters);

  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  EXPECT_EQ("QNL188 Virtual Controller", NameIn(host_.Command(kReadLocalName)));
  EXPECT_EQ(Complete(kReadBdAddr, {0, 9, 8, 7, 6, 5, 4}), host_.Command(kReadBdAddr));

  host_.PowerOff();
  host_.WriteNode("/proc/bluetooth/sleep/btwrite", "0");
  host_.PowerOn();
  EXPECT_EQ("QNL188 ROM", NameIn(host_.Command(kReadLocalName))) << "at 115200, awake although the line is low";
  EXPECT_EQ(Complete(kReadBdAddr, {0, 6, 5, 4, 3, 2, 1}), host_.Command(kReadBdAddr));
}

TEST_F(BoardTest, TwoSpeedsLoseWhatIsSent) {
  Board& board = Play();
  host_.SetSpeed(4000000);
  host_.Send(kReset);
  ASSERT_TRUE(Await(board, WireEvent::kLostBytes));
  EXPECT_THAT(Texts(board, WireEvent::kLostBytes),
              ElementsAre("the host sends at 4000000 bit/s, the controller listens at 115200"));
  // What the controller sends reaches the host as other bytes.
  const Packet event{0x04, 0x10, 0x01, 0x00};
  board.SendRaw(event);
  const Packet garbage = host_.ReadRaw();
  EXPECT_THAT(garbage, Not(IsEmpty()));
  EXPECT_NE(event, garbage);

  host_.SetSpeed(115200);
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset)) << "nothing of the lost command is left over";
}

TEST_F(BoardTest, SaysNothingBetweenASpeedChangeAndTheNextCommand) {
  Board& board = Start();
  host_.PowerOn();
  host_.Send(0xFC18, {0, 0, 0x00, 0x09, 0x3D, 0x00});
  EXPECT_EQ(Complete(0xFC18, {0}), host_.Read());
  ASSERT_TRUE(Await(board, WireEvent::kSpeed));
  board.SendPacket(0x04, {0x10, 0x01, 0x77});
  EXPECT_THAT(host_.Read(kSoonMs), IsEmpty());
  host_.SetSpeed(4000000);
  host_.Send(kReset);
  EXPECT_EQ((Packet{0x04, 0x10, 0x01, 0x77}), host_.Read());
  EXPECT_EQ(Complete(kReset, {0}), host_.Read());
  EXPECT_EQ(Complete(0xFC18, {0x12}), host_.Command(0xFC18, {0, 0, 1, 2, 3, 4})) << "no such speed";
}

TEST_F(BoardTest, AsleepItLosesBytesUntilTheLineRises) {
  sim::BoardOptions options = SmallBoard(root_);
  options.falls_asleep_after = std::chrono::milliseconds(1);
  Board& board = Start(options);
  host_.PowerOn();
  host_.WriteNode("/proc/bluetooth/sleep/lpm", "1");
  host_.WriteNode("/proc/bluetooth/sleep/btwrite", "1");
  EXPECT_EQ(Complete(kSetSleepMode, {0}), host_.Command(kSetSleepMode, kSleepParameters));
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset)) << "the line is up";
  host_.WriteNode("/proc/bluetooth/sleep/btwrite", "0");
  // It falls asleep some time after the line fell: the first command that it does not hear shows it.
  ASSERT_TRUE(WaitFor([&] {
    host_.Send(kReset);
    while (Count(board, WireEvent::kLostBytes) == 0) {
      if (!host_.Read(1).empty()) return false;
    }
    return true;
  }));
  EXPECT_THAT(Texts(board, WireEvent::kLostBytes), ElementsAre("the controller is asleep"));
  // Raised before the first byte, the line is high when the byte is looked at, however late that is.
  for (int i = 0; i < 50; ++i) {
    host_.WriteNode("/proc/bluetooth/sleep/btwrite", "1");
    ASSERT_EQ(Complete(kReset, {0}), host_.Command(kReset));
    host_.WriteNode("/proc/bluetooth/sleep/btwrite", "0");
  }
  EXPECT_EQ(1u, Count(board, WireEvent::kLostBytes));
  EXPECT_EQ(1u, Count(board, WireEvent::kLpmDriver));
}

TEST_F(BoardTest, ALaunchedPatchIsDeafWhileItBoots) {
  sim::BoardOptions options = SmallBoard(root_);
  options.patch_boots_in = std::chrono::hours(1);
  Board& board = Start(options);
  host_.BringUp();
  host_.Send(kReset);
  ASSERT_TRUE(Await(board, WireEvent::kLostBytes));
  EXPECT_THAT(Texts(board, WireEvent::kLostBytes), ElementsAre("the firmware is booting"));
  host_.PowerOff();
  host_.PowerOn();
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
}

struct BrokenPatch {
  const char* name;
  void (*breaks)(std::vector<Packet>* records);
  const char* complaint;
};

class BrokenPatchTest : public BoardTest, public testing::WithParamInterface<BrokenPatch> {};

// With answers the record itself is refused, without them the launch: silicon has no other way to say so.
TEST_P(BrokenPatchTest, IsNotLaunched) {
  Board& board = Start();
  for (const bool fast : {false, true}) {
    host_.PowerOff();
    host_.PowerOn();
    if (fast) host_.Command(kDownloadConfig, {0, 1});
    std::vector<Packet> records = Records(root_.Read("/vendor/firmware/qnlr/QNL_188_U.hcd"));
    GetParam().breaks(&records);
    host_.Command(kMinidriver);
    uint8_t status = 0;
    for (const Packet& record : records) {
      host_.Write(record);
      if (fast && record[1] == (kWriteRam & 0xFF)) continue;
      const Packet answer = host_.Read();
      status = answer.at(6);
      if (status != 0) break;
    }
    EXPECT_NE(0, status) << (fast ? "fast" : "answered");
  }
  EXPECT_THAT(Texts(board, WireEvent::kProtocolError), Contains(HasSubstr(GetParam().complaint)));
  EXPECT_EQ(0u, Count(board, WireEvent::kPatchLaunched));
}

INSTANTIATE_TEST_SUITE_P(
    All, BrokenPatchTest,
    testing::Values(
        BrokenPatch{"Swapped", [](std::vector<Packet>* r) { std::swap((*r)[3], (*r)[4]); }, "calls itself"},
        BrokenPatch{"Missing", [](std::vector<Packet>* r) { r->erase(r->begin() + 5); }, "calls itself"},
        BrokenPatch{"Twice", [](std::vector<Packet>* r) { r->insert(r->begin(), r->front()); }, "calls itself"},
        BrokenPatch{"WrongByte", [](std::vector<Packet>* r) { (*r)[2][40] ^= 1; }, "sum is wrong"},
        BrokenPatch{"CutShort", [](std::vector<Packet>* r) { r->erase(r->begin() + 11); }, "11 good records of 12"}),
    [](const auto& info) { return info.param.name; });

TEST_F(BoardTest, TheMinidriverTakesNothingButRecords) {
  Board& board = Start();
  host_.PowerOn();
  EXPECT_EQ(Complete(kLaunchRam, {0x0C}), host_.Command(kLaunchRam, {0xFF, 0xFF, 0xFF, 0xFF})) << "not yet";
  EXPECT_EQ(Complete(kMinidriver, {0}), host_.Command(kMinidriver));
  EXPECT_EQ(Complete(kReset, {0x0C}), host_.Command(kReset));
  EXPECT_EQ(Complete(kVersion, {0x0C}), host_.Command(kVersion));
  EXPECT_EQ(2u, Count(board, WireEvent::kProtocolError));
}

TEST_F(BoardTest, AFileWithoutLaunchRecordIsLaunchedByTheHost) {
  Start();
  host_.PowerOn();
  host_.Command(kMinidriver);
  const sim::Bytes file = sim::MakePatchFile("mine", 3, false);
  for (const Packet& record : Records({file.begin(), file.end()})) {
    host_.Write(record);
    ASSERT_EQ(Complete(kWriteRam, {0}), host_.Read());
  }
  EXPECT_EQ(Complete(kLaunchRam, {0}), host_.Command(kLaunchRam, {0xFF, 0xFF, 0xFF, 0xFF}));
  ASSERT_TRUE(Await(*board_, WireEvent::kPatchLaunched));
  EXPECT_THAT(Texts(*board_, WireEvent::kPatchLaunched), ElementsAre("mine"));
}

}  // namespace
}  // namespace bthal::test
