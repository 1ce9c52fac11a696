// What bthal board prints: all of it for whoever reads, and never at the controller's expense for whoever does not.
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <termios.h>

#include "bthal/show/death_words.h"
#include "support/board_host.h"
#include "support/pty.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

// Far more than a pipe holds, but less than is kept for a reader who has other things to do.
constexpr size_t kMany = 6000;
// Far more than is kept.
constexpr size_t kTooMany = 30000;

class BoardOutputTest : public ::testing::Test {
 protected:
  // Until it can be asked.
  void StartBoard(int output) {
    board_ = Spawn(BthalCommand({"board", "--patch-records", "3"}), output, complaints_.fd);
    ASSERT_TRUE(WaitFor([] { return Bthal({"board", "ctl", "state"}).status == 0; })) << ContentOf(complaints_.path);
  }

  // All that the host is sent arrives, whoever reads what is printed of it.
  void TalkToTheController(size_t fragments) {
    const std::string dump = "soc-dump,opcode=0x1009,size=8,fragments=" + std::to_string(fragments);
    ASSERT_EQ(Bthal({"board", "ctl", "fault", dump}).status, 0);
    host_.PowerOn();
    ASSERT_EQ(host_.Command(kReset), Complete(kReset, {0x00}));
    host_.Send(kReadBdAddr);
    for (size_t i = 0; i < fragments; ++i) ASSERT_EQ(host_.Read().size(), 17u) << i;
    ASSERT_EQ(host_.Read().size(), 13u);
    ASSERT_EQ(host_.Command(kReset), Complete(kReset, {0x00}));
    host_.Close();
    // What it told the host it has noted by the time that it answers someone else.
    ASSERT_EQ(Bthal({"board", "ctl", "state"}).status, 0);
  }

  void EndBoard() {
    board_.Signal(SIGTERM);
    const std::optional<int> status = board_.Wait(seconds(20));
    ASSERT_TRUE(status) << "it waits for its reader";
    EXPECT_EQ(*status, 0) << tool::ExitWords(*status);
    EXPECT_EQ(ContentOf(complaints_.path), "");
  }

  const TempRoot root_;
  const TemporaryFile complaints_;
  tool::Child board_;
  BoardHost host_{root_};
};

// Every line of TalkToTheController, in its order.
void ExpectAll(const std::string& text, size_t fragments) {
  EXPECT_EQ(CountIn(text, " > event"), fragments + 3);
  EXPECT_THAT(text, Not(HasSubstr("dropped")));
  EXPECT_THAT(text, StartsWith("playing below"));
  size_t at = 0;
  for (size_t i = 0; i < fragments && at != text.npos; ++i) {
    at = text.find(::android::base::StringPrintf("FF 0E 58 13 00 %02X %02X %02X", i + 1 == fragments ? 1 : 0,
                                                 static_cast<unsigned>(i & 0xFF), static_cast<unsigned>(i >> 8)),
                   at);
  }
  ASSERT_NE(at, text.npos);
  EXPECT_THAT(text.substr(at), ContainsRegex("success, [0-9A-F:]+ [^\n]+\n[^\n]+< command  Reset[^\n]+\n"
                                             "[^\n]+Command Complete: Reset, success[^\n]+\n"));
  EXPECT_EQ(text.back(), '\n');
}

TEST_F(BoardOutputTest, WhoReadsLateGetsEveryLineInItsOrder) {
  unique_fd reader, writer;
  ASSERT_TRUE(::android::base::Pipe(&reader, &writer));
  ASSERT_NO_FATAL_FAILURE(StartBoard(writer.get()));
  writer.reset();
  ASSERT_NO_FATAL_FAILURE(TalkToTheController(kMany));
  std::future<std::string> reading = std::async(std::launch::async, [&reader] {
    std::string text;
    ::android::base::ReadFdToString(reader, &text);
    return text;
  });
  EndBoard();
  ExpectAll(reading.get(), kMany);
}

TEST_F(BoardOutputTest, AFileGetsHoweverMuchThereIs) {
  const TemporaryFile output;
  ASSERT_NO_FATAL_FAILURE(StartBoard(output.fd));
  ASSERT_NO_FATAL_FAILURE(TalkToTheController(kTooMany));
  EndBoard();
  ExpectAll(ContentOf(output.path), kTooMany);
}

TEST_F(BoardOutputTest, AControllerWhoseBoardIsNotReadAnswers) {
  unique_fd reader, writer;
  ASSERT_TRUE(::android::base::Pipe(&reader, &writer));
  ASSERT_NO_FATAL_FAILURE(StartBoard(writer.get()));
  writer.reset();
  ASSERT_NO_FATAL_FAILURE(TalkToTheController(kTooMany));
  // Whoever reads at last is told what is missing, and misses no more.
  std::string text;
  const auto read_until = [&](const std::string& end) {
    char piece[4096];
    while (text.find(end) == text.npos) {
      const ssize_t count = read(reader.get(), piece, sizeof(piece));
      if (count <= 0) return false;
      text.append(piece, static_cast<size_t>(count));
    }
    return true;
  };
  ASSERT_TRUE(read_until("lines dropped: nobody was reading\n"));
  ASSERT_EQ(Bthal({"board", "ctl", "fault", "hardware-error,now"}).status, 0);
  ASSERT_TRUE(read_until("Hardware Error"));
  size_t dropped = 0;
  for (const std::string& line : ::android::base::Split(text, "\n")) {
    sscanf(line.c_str(), "board: %zu lines dropped", &dropped);
  }
  // Of the fragments, and the four lines after them.
  EXPECT_GE(CountIn(text, "Controller Memory") + dropped, kTooMany);
  EXPECT_LE(CountIn(text, "Controller Memory") + dropped, kTooMany + 4);
  EndBoard();
}

TEST_F(BoardOutputTest, ABoardThatIsNotReadEndsWhenAsked) {
  const Pty stopped;
  const unique_fd terminal(open(stopped.host_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(tcflow(terminal.get(), TCOOFF), 0);  // as Ctrl-S
  unique_fd reader, writer;
  ASSERT_TRUE(::android::base::Pipe(&reader, &writer));
  for (const int output : {terminal.get(), writer.get()}) {
    ASSERT_NO_FATAL_FAILURE(StartBoard(output));
    ASSERT_NO_FATAL_FAILURE(TalkToTheController(kTooMany));
    EndBoard();
  }
}

// A demo or a shell plays the board itself; its controller answers all the same while nobody reads.
class OwnBoardTest : public ::testing::TestWithParam<const char*> {
 protected:
  OwnBoardTest() {
    setenv("XDG_RUNTIME_DIR", folder_.path, 1);
    setenv("HOME", folder_.path, 1);
    unsetenv("BTHAL_ROOT");
  }

  const TemporaryDir folder_;
};

// Through a description of its own: who else writes there still waits for room.
void Fill(int pipe) {
  const unique_fd writer(open(("/proc/self/fd/" + std::to_string(pipe)).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  const std::string zeros(4096, '\0');
  for (size_t size = zeros.size(); size > 0; size /= 2) {
    while (write(writer.get(), zeros.data(), size) > 0) {
    }
  }
}

TEST_P(OwnBoardTest, ComesUpWhileNobodyReads) {
  const TemporaryFile complaints;
  unique_fd input, typist, reader, writer;
  ASSERT_TRUE(::android::base::Pipe(&input, &typist));
  ASSERT_TRUE(::android::base::Pipe(&reader, &writer));
  tool::Child program = Spawn(BthalCommand({GetParam()}), writer.get(), complaints.fd, input.get());
  input.reset();
  std::string text;
  const auto read_some = [&] {
    char piece[4096];
    const ssize_t count = read(reader.get(), piece, sizeof(piece));
    if (count > 0) text.append(piece, static_cast<size_t>(count));
    return count > 0;
  };
  while (text.find(" service  pid") == text.npos) ASSERT_TRUE(read_some()) << text << ContentOf(complaints.path);
  Fill(writer.get());
  writer.reset();
  const std::string log = std::string(folder_.path) + "/bthal-" + GetParam() + "/data/log/service.log";
  EXPECT_TRUE(WaitFor([&] { return ContentOf(log).find("BTQNL controller is ready") != std::string::npos; }))
      << ContentOf(log);
  typist.reset();
  while (read_some()) {
  }
  EXPECT_EQ(program.Wait(seconds(20)), 0) << text << ContentOf(complaints.path);
  EXPECT_EQ(CountIn(text, "patch    launched"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Commands, OwnBoardTest, ::testing::Values("demo", "shell"));

TEST_F(BoardOutputTest, AFullDiskEndsIt) {
  const unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  board_ = Spawn(BthalCommand({"board"}), full.get(), complaints_.fd);
  EXPECT_EQ(board_.Wait(seconds(20)), W_EXITCODE(1, 0));
  EXPECT_EQ(ContentOf(complaints_.path), "bthal: cannot write to standard output: No space left on device\n");
}

}  // namespace
}  // namespace bthal
