// The virtual board from power-on to a sleeping controller, brought up by hand.
#include "sim/board.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "sim/controller/firmware.h"
#include "support/board_host.h"
#include "support/child_process.h"
#include "support/wait_for.h"

namespace bthal::test {
namespace {

using sim::Board;
using sim::WireEvent;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr uint16_t kReset = 0x0C03;
constexpr uint16_t kReadLocalName = 0x0C14;
constexpr uint16_t kReadBdAddr = 0x1009;
constexpr uint16_t kWriteBdAddr = 0xFC01;
constexpr uint16_t kSetSleepMode = 0xFC27;
constexpr uint16_t kMinidriver = 0xFC2E;
constexpr uint16_t kWriteRam = 0xFC4C;
constexpr uint16_t kLaunchRam = 0xFC4E;
constexpr uint16_t kVersion = 0xFC79;
constexpr uint16_t kCheckOtp = 0xFE2F;
constexpr uint16_t kDownloadConfig = 0xFE72;
const Packet kSleepParameters{0x01, 0x18, 0x18, 0x01, 0x01, 0x01, 0x01, 0, 0, 0, 0, 0};
const Packet kOtpParameters{0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
constexpr int kSoon = 100;

class BoardTest : public testing::Test {
 protected:
  Board& Start(sim::BoardOptions options) {
    board_ = std::make_unique<Board>(std::move(options));
    std::string error;
    EXPECT_TRUE(board_->Start(&error)) << error;
    return *board_;
  }
  Board& Start() { return Start(SmallBoard(root_)); }

  TempRoot root_;
  std::unique_ptr<Board> board_;
  BoardHost host_{root_};
};

std::string NameIn(const Packet& complete) {
  return complete.size() < 8 ? "no answer" : reinterpret_cast<const char*>(complete.data() + 7);
}

TEST_F(BoardTest, ComesUpAndSaysWhoItIs) {
  sim::BoardOptions options = SmallBoard(root_);
  options.local_name = "Kitchen";
  Board& board = Start(options);
  host_.PowerOn();
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  EXPECT_EQ(Complete(kVersion, {0, 188, 0, 0, 0, 0, 0}), host_.Command(kVersion));
  EXPECT_EQ("QNL188 ROM", NameIn(host_.Command(kReadLocalName)));
  host_.ChangeSpeed(4000000);
  EXPECT_EQ(Complete(kCheckOtp, {0}), host_.Command(kCheckOtp, kOtpParameters));
  host_.Download("QNL_188_U.hcd", true);
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  EXPECT_NE(Complete(kVersion, {0, 188, 0, 0, 0, 0, 0}), host_.Command(kVersion)) << "the patch has a build number";
  host_.ChangeSpeed(4000000);
  EXPECT_EQ("Kitchen", NameIn(host_.Command(kReadLocalName)));
  EXPECT_EQ(Complete(kSetSleepMode, {0}), host_.Command(kSetSleepMode, kSleepParameters));

  ASSERT_TRUE(Await(board, WireEvent::kSleepModeSet));
  EXPECT_THAT(Texts(board, WireEvent::kPatchLaunched), ElementsAre("QNL_188_U.hcd"));
  EXPECT_EQ(12u, Count(board, WireEvent::kPatchRecord));
  EXPECT_THAT(Texts(board, WireEvent::kProtocolError), IsEmpty());
  EXPECT_THAT(Texts(board, WireEvent::kLostBytes), IsEmpty());
  std::vector<uint64_t> speeds;
  for (const auto& entry : board.Journal()) {
    if (entry.event == WireEvent::kSpeed) speeds.push_back(entry.value);
  }
  EXPECT_THAT(speeds, ElementsAre(4000000, 115200, 4000000));
}

TEST_F(BoardTest, AnswersForItsChip) {
  sim::BoardOptions options = SmallBoard(root_);
  options.chip_id = 12;
  options.otp_written = true;
  Start(options);
  host_.PowerOn();
  EXPECT_EQ(12, host_.Command(kVersion)[7]);
  EXPECT_EQ(Complete(kCheckOtp, {0x0C}), host_.Command(kCheckOtp, kOtpParameters))
      << "a written OTP is not to be asked";
  EXPECT_EQ(Complete(kDownloadConfig, {0x01}), host_.Command(kDownloadConfig, {0, 1})) << "too old for fast mode";
  host_.ChangeSpeed(4000000);
  host_.Download("QNL.hcd", false);
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
}

TEST_F(BoardTest, Chip170AcknowledgesARecordForAHostThatWaits) {
  sim::BoardOptions options = SmallBoard(root_);
  options.chip_id = 170;
  Start(options);
  host_.PowerOn();
  host_.ChangeSpeed(4000000);
  host_.Download("QNL.hcd", false);
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
}

TEST_F(BoardTest, IsSilentWithoutPower) {
  Board& board = Start();
  host_.Open();
  host_.Send(kReset);
  ASSERT_TRUE(Await(board, WireEvent::kLostBytes));
  EXPECT_THAT(Texts(board, WireEvent::kLostBytes), ElementsAre("the power is off"));
  board.SendPacket(0x04, {0x10, 0x01, 0x00});
  EXPECT_THAT(host_.Read(kSoon), IsEmpty());
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
  Board& board = Start();
  host_.PowerOn();
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  host_.SetSpeed(4000000);
  host_.Send(kReset);
  ASSERT_TRUE(Await(board, WireEvent::kLostBytes));
  EXPECT_THAT(Texts(board, WireEvent::kLostBytes),
              ElementsAre("the host sends at 4000000 bit/s, the controller listens at 115200"));
  // What the controller sends reaches the host as other bytes.
  const Packet event{0x04, 0x10, 0x01, 0x00};
  board.SendRaw(event);
  const Packet garbage = host_.ReadRaw();
  EXPECT_THAT(garbage, testing::Not(IsEmpty()));
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
  EXPECT_THAT(host_.Read(kSoon), IsEmpty());
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

// The order across nodes is what tests of the power sequence and of wake locks judge by.
TEST_F(BoardTest, KeepsTheOrderOfWritesAcrossNodes) {
  Board& board = Start();
  const int coex = open((root_.path() + "/dev/wbrc").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(coex, 0);
  std::vector<WireEvent> expected;
  auto node = [&](const char* path, const char* text, WireEvent event) {
    host_.WriteNode(path, text);
    expected.push_back(event);
  };
  constexpr int kRounds = 200;
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_EQ(4, write(coex, "\x02\x02\x03\x47", 4));
    expected.push_back(WireEvent::kCoexMessage);
    node("/sys/class/rfkill/rfkill0/state", "1", WireEvent::kPowerOn);
    expected.push_back(WireEvent::kBooted);
    ASSERT_EQ(4, write(coex, "\x02\x02\x03\x48", 4));
    expected.push_back(WireEvent::kCoexMessage);
    node("/sys/power/wake_lock", "first\n", WireEvent::kWakeLock);
    node("/proc/bluetooth/sleep/btwrite", "1", WireEvent::kWakeLine);
    node("/proc/bluetooth/sleep/btwrite", "0", WireEvent::kWakeLine);
    node("/sys/power/wake_unlock", "first\n", WireEvent::kWakeUnlock);
    node("/sys/power/wake_lock", "second\n", WireEvent::kWakeLock);
    node("/sys/class/rfkill/rfkill0/state", "0", WireEvent::kPowerOff);
    node("/sys/devices/platform/155d0000.serial/uart_dbg", "8", WireEvent::kUartDebug);
  }
  ASSERT_TRUE(Await(board, WireEvent::kUartDebug, kRounds));
  std::vector<WireEvent> seen;
  for (const auto& entry : board.Journal()) seen.push_back(entry.event);
  EXPECT_EQ(expected, seen);
  EXPECT_EQ("first", Texts(board, WireEvent::kWakeUnlock)[0]);
  close(coex);
}

TEST_F(BoardTest, SpeaksToTheCoexistenceDevicesUser) {
  Board& board = Start();
  const std::string path = root_.path() + "/dev/wbrc";
  int coex = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  board.SendCoexEvent({0x01, 0x00, 0x01, 0x43});
  Packet event(8);
  ASSERT_EQ(4, read(coex, event.data(), event.size()));
  EXPECT_THAT(event, ElementsAre(1, 0, 1, 0x43, 0, 0, 0, 0));
  board.HangUpCoex();
  EXPECT_EQ(0, read(coex, event.data(), event.size())) << "end of file";
  close(coex);
  coex = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(4, write(coex, "\x02\x02\x04\x81", 4));
  ASSERT_TRUE(Await(board, WireEvent::kCoexMessage));
  close(coex);
}

TEST_F(BoardTest, FurnishesWhatTheServiceLooksForAndKeepsWhatIsThere) {
  root_.Write("/vendor/etc/bluetooth/bt_vendor.conf", "AccelBtDisable=1\n");
  const sim::Bytes mine = sim::MakePatchFile("QNL.hcd", 99);
  root_.Write("/vendor/firmware/qnlr/QNL.hcd", {mine.begin(), mine.end()});
  root_.Write("/vendor/firmware/qnlr/QNL_174.hcd", "cut");
  Start();
  EXPECT_EQ("AccelBtDisable=1\n", root_.Read("/vendor/etc/bluetooth/bt_vendor.conf"));
  EXPECT_EQ("cut", root_.Read("/vendor/firmware/qnlr/QNL_174.hcd"));
  EXPECT_EQ(13u, Records(root_.Read("/vendor/firmware/qnlr/QNL.hcd")).size())
      << "made anew with 12 records and a launch";
  EXPECT_EQ("bluetooth\n", root_.Read("/sys/class/rfkill/rfkill0/type"));
  EXPECT_EQ("AA:BB:CC:11:22:33\n", root_.Read("/proc/device-tree/chosen/config/bt_addr"));
  for (const char* name :
       {"QNL_188_U.hcd", "QNL_188_S.hcd", "QNL_181.hcd", "QNL_185.hcd", "QNL_200.hcd", "BTFW_B.hcd", "BTFW_D.hcd"}) {
    EXPECT_FALSE(Records(root_.Read(std::string("/vendor/firmware/qnlr/") + name)).empty()) << name;
  }
  EXPECT_TRUE(std::filesystem::is_directory(root_.path() + "/data/vendor/ssrdump/coredump"));
}

TEST_F(BoardTest, RefusesToStartWithAReason) {
  std::string error;
  auto refuses = [&](auto change) {
    sim::BoardOptions options = SmallBoard(root_);
    change(options);
    error.clear();
    EXPECT_FALSE(Board(options).Start(&error));
    return error;
  };
  EXPECT_THAT(refuses([](auto& o) { o.root = ""; }), HasSubstr("device root"));
  EXPECT_THAT(refuses([](auto& o) { o.root = "/proc/no"; }), HasSubstr("choose a device root that you may write to"));
  EXPECT_THAT(refuses([](auto& o) { o.address = "11:22"; }), HasSubstr("no Bluetooth address"));
  EXPECT_THAT(refuses([](auto& o) { o.patch_records = 0; }), HasSubstr("1 to 65535"));
  EXPECT_THAT(refuses([](auto& o) { o.faults = {"rain"}; }),
              StartsWith("no fault is called 'rain'; there are: no-answer"));
  EXPECT_THAT(refuses([](auto& o) { o.backend = "tcp:1"; }), HasSubstr("unix:PATH"));
  EXPECT_THAT(refuses([&](auto& o) { o.backend = "unix:" + root_.path() + "/none"; }), HasSubstr("start it first"));
  root_.Write("/dev/wbrc", "a file");
  EXPECT_THAT(refuses([](auto&) {}), HasSubstr("is no symbolic link of a virtual board"));
  std::filesystem::remove(root_.path() + "/dev/wbrc");
  Start();
  EXPECT_THAT(refuses([](auto&) {}), HasSubstr("another virtual board plays"));
}

constexpr const char* kNodes[] = {"/dev/ttySAC16", "/dev/wbrc", "/sys/class/rfkill/rfkill0/state",
                                  "/sys/power/wake_lock"};

// What the process (or thread) does: R runs, S waits, T is stopped.
char StateOf(pid_t id) {
  std::ifstream stat("/proc/" + std::to_string(id) + "/stat");
  std::string text;
  std::getline(stat, text);
  const size_t name_ends = text.rfind(')');
  return name_ends == std::string::npos ? '?' : text.at(name_ends + 2);
}

TEST_F(BoardTest, TakesItsNodesAlongAndReplacesWhatAKilledBoardLeft) {
  Start();
  board_->Stop();
  struct stat status {};
  for (const char* path : kNodes) EXPECT_NE(0, lstat((root_.path() + path).c_str(), &status)) << path;
  const std::string fifo = root_.Below("/sys/power/wake_lock");
  ASSERT_EQ(0, symlink("/dev/pts/nowhere", (root_.path() + "/dev/ttySAC16").c_str()));
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  std::atomic<pid_t> waits{0};
  std::thread writer([&] {
    waits = gettid();
    close(open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
  });
  EXPECT_TRUE(WaitFor([&] { return waits != 0 && StateOf(waits) == 'S'; }));
  Start();
  writer.join();
  host_.PowerOn();
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
}

TEST_F(BoardTest, KilledItLeavesNothingThatHangsOrLeadsToAStranger) {
  Gate playing;
  ChildProcess process([&] {
    std::string error;
    Board board(SmallBoard(root_));
    if (!board.Start(&error)) return 1;
    playing.Open();
    return pause();
  });
  playing.Pass();
  const std::string id = std::to_string(process.pid());
  pid_t guardian = 0;
  std::ifstream("/proc/" + id + "/task/" + id + "/children") >> guardian;
  ASSERT_GT(guardian, 0);
  const std::string terminal = std::filesystem::read_symlink(root_.path() + "/dev/ttySAC16");
  // The moment between the board's death and its guardian's work, drawn out.
  kill(guardian, SIGSTOP);
  ASSERT_TRUE(WaitFor([&] { return StateOf(guardian) == 'T'; }));
  process.Kill();
  for (const char* path : kNodes) {
    const bool is_fifo = std::filesystem::is_fifo(root_.path() + path);
    const int fd = open((root_.path() + path).c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(is_fifo, fd >= 0) << path << ": a FIFO still has its reader, a terminal has gone";
    if (fd >= 0) close(fd);
  }
  std::vector<int> strangers;
  for (int i = 0; i < 4; ++i) {
    const int stranger = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(stranger, 0);
    EXPECT_NE(terminal, ptsname(stranger));
    strangers.push_back(stranger);
  }
  for (const int stranger : strangers) close(stranger);
  kill(guardian, SIGCONT);
  struct stat status {};
  for (const char* path : kNodes) {
    EXPECT_TRUE(WaitFor([&] { return lstat((root_.path() + path).c_str(), &status) != 0; })) << path;
  }
}

TEST_F(BoardTest, PlaysOnlyTheCoexistenceDriverWhenAsked) {
  sim::BoardOptions options = SmallBoard(root_);
  options.only_coex = true;
  Board& board = Start(options);
  const int coex = open((root_.path() + "/dev/wbrc").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(4, write(coex, "\x02\x02\x03\x45", 4));
  EXPECT_TRUE(Await(board, WireEvent::kCoexMessage));
  EXPECT_FALSE(std::filesystem::exists(root_.path() + "/sys"));
  EXPECT_FALSE(std::filesystem::exists(root_.path() + "/dev/ttySAC16"));
  close(coex);
}

}  // namespace
}  // namespace bthal::test
