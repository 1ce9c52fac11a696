// What the virtual board puts below the device root, and what becomes of it.
#include "sim/controller/firmware/patch_file.h"
#include "support/board_host.h"
#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using BoardNodesTest = BoardTest;

// The order across nodes is what tests of the power sequence and of wake locks judge by.
TEST_F(BoardNodesTest, KeepsTheOrderOfWritesAcrossNodes) {
  Board& board = Start();
  const unique_fd coex(open((root_.path() + "/dev/wbrc").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  std::vector<WireEvent> expected;
  auto node = [&](const char* path, const char* text, WireEvent event) {
    host_.WriteNode(path, text);
    expected.push_back(event);
  };
  constexpr int kRounds = 200;
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_EQ(4, write(coex.get(), "\x02\x02\x03\x47", 4));
    expected.push_back(WireEvent::kCoexMessage);
    node("/sys/class/rfkill/rfkill0/state", "1", WireEvent::kPowerOn);
    expected.push_back(WireEvent::kBooted);
    ASSERT_EQ(4, write(coex.get(), "\x02\x02\x03\x48", 4));
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
}

TEST_F(BoardNodesTest, FurnishesWhatTheServiceLooksForAndKeepsWhatIsThere) {
  root_.Write("/vendor/etc/bluetooth/bt_vendor.conf", "AccelBtDisable=1\n");
  const sim::Bytes mine = sim::MakePatchFile("QNL.hcd", 99);
  root_.Write("/vendor/firmware/qnlr/QNL.hcd", {mine.begin(), mine.end()});
  root_.Write("/vendor/firmware/qnlr/QNL_174.hcd", "cut");
  root_.Write("/elsewhere.hcd", {mine.begin(), mine.end()});
  std::filesystem::create_symlink("../../../elsewhere.hcd", root_.Below("/vendor/firmware/qnlr/QNL_181.hcd"));
  ASSERT_EQ(mkfifo(root_.Below("/vendor/firmware/qnlr/QNL_185.hcd").c_str(), 0600), 0);
  std::filesystem::permissions(root_.Below("/vendor/firmware/qnlr/QNL.hcd"), std::filesystem::perms{0640});
  std::ifstream reader(root_.Below("/vendor/firmware/qnlr/QNL.hcd"), std::ios::binary);
  Start();
  EXPECT_EQ("AccelBtDisable=1\n", root_.Read("/vendor/etc/bluetooth/bt_vendor.conf"));
  EXPECT_EQ("cut", root_.Read("/vendor/firmware/qnlr/QNL_174.hcd"));
  EXPECT_EQ(13u, Records(root_.Read("/vendor/firmware/qnlr/QNL.hcd")).size())
      << "made anew with 12 records and a launch";
  EXPECT_EQ(root_.ModeOf("/vendor/firmware/qnlr/QNL.hcd"), 0640u);
  EXPECT_EQ(sim::Bytes(std::istreambuf_iterator<char>(reader), {}), mine) << "for whom it was open already";
  EXPECT_EQ(root_.Read("/elsewhere.hcd"), std::string(mine.begin(), mine.end()));
  EXPECT_TRUE(std::filesystem::is_fifo(root_.Below("/vendor/firmware/qnlr/QNL_185.hcd")));
  EXPECT_FALSE(Records(root_.Read("/vendor/firmware/qnlr/BTFW_B.hcd")).empty());
  EXPECT_TRUE(std::filesystem::is_directory(root_.path() + "/data/vendor/ssrdump/coredump"));
}

TEST_F(BoardNodesTest, RefusesToStartWithAReason) {
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

TEST_F(BoardNodesTest, TakesItsNodesAlongAndReplacesWhatAKilledBoardLeft) {
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

TEST_F(BoardNodesTest, KilledItLeavesNothingThatHangsOrLeadsToAStranger) {
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

TEST_F(BoardNodesTest, PlaysOnlyTheCoexistenceDriverWhenAsked) {
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
