// Programs that really die, and what supervises them.
#include <android-base/strings.h>

#include "bthal/run/process.h"
#include "bthal/show/death_words.h"
#include "bthal/show/last_words.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

using ::android::base::Split;

// Dead, if only as the zombie of someone who does not reap.
bool Dead(pid_t pid) {
  const char state = StateOf(pid);
  return state == '?' || state == 'Z';
}

class SuperviseTest : public ::testing::Test {
 protected:
  static std::vector<std::string> CommandLine(const std::vector<std::string>& options, const std::string& script) {
    std::vector<std::string> arguments = BthalCommand({"supervise"});
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), {"--", "/bin/sh", "-c", script});
    return arguments;
  }

  static ProgramResult Supervise(const std::vector<std::string>& options, const std::string& script) {
    return RunProgram(CommandLine(options, script));
  }

  // Until the script has written its pid, which is returned.
  pid_t Start(const std::string& script, int output = -1) {
    supervisor_ = Spawn(CommandLine({}, script), output);
    return PidOf("/pid");
  }

  pid_t PidOf(const std::string& file) const {
    pid_t pid = 0;
    EXPECT_TRUE(WaitFor([&] { return std::ifstream(root_.path() + file) >> pid && pid > 0; }));
    return pid;
  }

  void ExpectOrderlyEnd() {
    const std::optional<int> status = supervisor_.Wait(std::chrono::seconds(20));
    ASSERT_TRUE(status);
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << tool::ExitWords(*status);
  }

  const TempRoot root_;
  tool::Child supervisor_;
};

// Every death is told; only the same one in a row makes the pauses longer.
TEST_F(SuperviseTest, RestartsAndSlowsDownForTheSameDeathAgainAndAgain) {
  const ProgramResult result = Supervise({"--max-restarts", "6"},
                                         "echo >> $BTHAL_ROOT/runs; case $(wc -l < $BTHAL_ROOT/runs) in "
                                         "1|3) kill -KILL $$;; 2) exit 3;; *) kill -SEGV $$;; esac");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(root_.Read("/runs"), std::string(7, '\n'));
  std::string told;
  for (const std::string& line : Split(result.error, "\n")) {
    for (const char* what : {"was killed by", "exited", "restarting", "the same death", "gave up"}) {
      if (const size_t at = line.find(what); at != std::string::npos) told += line.substr(at) + "\n";
    }
  }
  EXPECT_THAT(told, MatchesRegex("was killed by SIGKILL after [^\n]*\nrestarting at once\n"
                                 "exited with status 3 after [^\n]*\nrestarting at once\n"
                                 "was killed by SIGKILL after [^\n]*\nrestarting at once\n"
                                 "was killed by SIGSEGV[^\n]* after [^\n]*\nrestarting at once\n"
                                 "was killed by SIGSEGV[^\n]* after [^\n]*\nrestarting in 0.1 s\n"
                                 "was killed by SIGSEGV[^\n]* after [^\n]*\n"
                                 "the same death 3 times within a minute: slowing down; [^\n]*\n"
                                 "restarting in 1 s\n"
                                 "was killed by SIGSEGV[^\n]* after [^\n]*\ngave up after 6 restarts\n"));
}

TEST_F(SuperviseTest, OnceGivesTheProgramsOwnStatus) {
  EXPECT_EQ(Supervise({"--once"}, "exit 0").status, 0);
  const ProgramResult failed = Supervise({"--once"}, "printf to-out; exit 7");
  EXPECT_EQ(failed.status, 7);
  EXPECT_THAT(failed.error, AllOf(HasSubstr("to-out\n"), HasSubstr("exited with status 7")));
  EXPECT_EQ(Supervise({"--once"}, "kill -SEGV $$").status, 128 + SIGSEGV);
}

TEST_F(SuperviseTest, RepeatsTheFatalLineOrElseTheLastErrors) {
  const std::string time = "11-21 09:02:20.881 21582 21586 ";
  const ProgramResult fatal = Supervise(
      {"--once"}, "echo '" + time + "E tag: an error' >&2; echo '" + time + "F tag: the end' >&2; kill -ABRT $$");
  EXPECT_THAT(fatal.error, AllOf(HasSubstr("  it said: " + time + "F tag: the end\n"),
                                 Not(HasSubstr("  it said: " + time + "E")), HasSubstr("was killed by SIGABRT")));
  const ProgramResult quiet =
      Supervise({"--once"}, "for i in 1 2 3 4; do echo '" + time + "E tag: error '$i; done; kill -KILL $$");
  EXPECT_THAT(quiet.error, AllOf(Not(HasSubstr("it said: " + time + "E tag: error 1\n")),
                                 HasSubstr("it said: " + time + "E tag: error 2\n")));
}

// A real service that ends itself: in words first, then what it said, then what it left.
TEST_F(SuperviseTest, TellsTheCauseAndTheCrashFiles) {
  const std::string report =
      "11-21 09:02:20.881 21582 21586 E tag: ReportBqrError: root inflamed event with error_code: ";
  root_.Write("/data/vendor/ssrdump/old", "");
  const timespec long_ago[2] = {};
  ASSERT_EQ(utimensat(AT_FDCWD, (root_.path() + "/data/vendor/ssrdump/old").c_str(), long_ago, 0), 0);
  const ProgramResult result = Supervise(
      {"--once"}, "echo '" + report +
                      "(147), error_info: x'; mkdir $BTHAL_ROOT/data/vendor/ssrdump/coredump; "
                      "echo > $BTHAL_ROOT/data/vendor/ssrdump/coredump/new; : > $BTHAL_ROOT/data/vendor/ssrdump/full; "
                      "kill -KILL $$");
  EXPECT_THAT(result.error, HasSubstr("supervise:   the controller did not obey the first reset: see its power, the "
                                      "wiring and UartPort\nsupervise:   it said: " +
                                      report + "(147), error_info: x\nsupervise:   it left: " + root_.path() +
                                      "/data/vendor/ssrdump/coredump/new\nsupervise:   it left: " + root_.path() +
                                      "/data/vendor/ssrdump/full (empty: the disk may be full)\n"));
  EXPECT_THAT(result.error, Not(HasSubstr("ssrdump/old")));
  EXPECT_THAT(
      tool::CauseOfDeath({report + "(148), error_info: y", "E tag: download_direct: Failed to write patchram: 18"}),
      StartsWith("the firmware patch was refused: "));
  EXPECT_THAT(tool::CauseOfDeath({"E tag: download_direct: Failed to write patchram: 3", report + "(148), x"}),
              StartsWith("the controller stopped answering during the firmware download: "));
  EXPECT_THAT(tool::CauseOfDeath({"E tag: download_direct: Failed to write patchram: 31"}),
              StartsWith("the firmware patch was refused: "));
  EXPECT_THAT(
      tool::CauseOfDeath({"F tag: Bluetooth HAL crash with error code 0, vendor error code 132, extra info: z"}),
      StartsWith("the controller's port takes nothing, or has hung up: "));
  EXPECT_EQ(tool::CauseOfDeath({"E tag: something else", report + "(200000), error_info: w"}), "");
}

TEST(LastWordsTest, KnowsBothLogFormats) {
  EXPECT_EQ(tool::LogSeverity("11-21 09:02:20.881 21582 21586 W some.tag: text"), 'W');
  EXPECT_EQ(tool::LogSeverity("some.tag F 11-21 09:02:20 21582 21586 file.cc:7] text"), 'F');
  for (const char* other : {"", "F", "a plain line", "#0 F in a stack trace", "11-21 09:02:20.881 1 2 X tag: text"}) {
    EXPECT_EQ(tool::LogSeverity(other), 0) << other;
  }
}

TEST_F(SuperviseTest, ReleasesTheWakeLockOfTheDead) {
  root_.Write("/sys/power/wake_unlock", "");
  const ProgramResult result = Supervise({"--once"}, "kill -KILL $$");
  EXPECT_EQ(root_.Read("/sys/power/wake_unlock"), "bthal_wakelock\n");
  EXPECT_THAT(result.error, HasSubstr("released the wake lock bthal_wakelock"));
}

// Whatever the supervisor is told, the program is asked to end with SIGTERM, and is gone before the supervisor is.
TEST_F(SuperviseTest, EndsTheProgramInOrder) {
  signal(SIGHUP, SIG_DFL);  // whoever runs the test may ignore it
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    root_.Write("/pid", "");
    const pid_t pid = Start(
        "trap 'echo asked >> $BTHAL_ROOT/asked; exit 0' TERM; echo $$ > $BTHAL_ROOT/pid; while :; do sleep 0.05; done");
    supervisor_.Signal(signal);
    ExpectOrderlyEnd();
    EXPECT_TRUE(Dead(pid));
  }
  EXPECT_EQ(root_.Read("/asked"), "asked\nasked\nasked\n");
}

// A program that is killed, of which something lives on that fills the pipe for ever.
TEST_F(SuperviseTest, NoticesADeathThroughTheNoiseOfWhatIsLeft) {
  EXPECT_EQ(Supervise({"--once"}, "yes & kill -KILL $$").status, 128 + SIGKILL);
}

// A pipe that nobody drains: the program still talks its fill, the supervisor still obeys, and what was lost is told to
// whoever reads later.
class UnreadSupervisor : public SuperviseTest {
 protected:
  UnreadSupervisor() {
    unique_fd write_end;
    EXPECT_TRUE(::android::base::Pipe(&read_end_, &write_end));
    Start(
        "seq 100001 400000; echo $$ > $BTHAL_ROOT/pid; while [ ! -e $BTHAL_ROOT/go ]; do sleep 0.01; done; "
        "echo the end; exec sleep 1000",
        write_end.get());
  }

  bool ReadUntil(const std::string& text) {
    char piece[4096];
    while (output_.find(text) == std::string::npos) {
      const ssize_t count = read(read_end_.get(), piece, sizeof(piece));
      if (count <= 0) return false;
      output_.append(piece, static_cast<size_t>(count));
    }
    return true;
  }

  unique_fd read_end_;
  std::string output_;
};

TEST_F(UnreadSupervisor, EndsAllTheSame) {
  supervisor_.Signal(SIGTERM);
  ExpectOrderlyEnd();
}

TEST_F(UnreadSupervisor, CountsTheLinesThatItDrops) {
  ASSERT_TRUE(ReadUntil("lines dropped"));
  root_.Write("/go", "");
  ASSERT_TRUE(ReadUntil("the end\n"));
  size_t numbers = 0;
  size_t dropped = 0;
  for (const std::string& line : Split(output_, "\n")) {
    unsigned long count = 0;
    if (sscanf(line.c_str(), "supervise: %lu lines dropped: nobody was reading", &count) == 1) dropped += count;
    if (line.size() == 6 && line.find_first_not_of("0123456789") == std::string::npos) ++numbers;
  }
  EXPECT_GT(dropped, 0u);
  EXPECT_EQ(numbers + dropped, 300000u);
}

TEST_F(SuperviseTest, AChildAndItsOwnChildrenEndWithTheirOwner) {
  pid_t child_pid = 0;
  pid_t grandchild_pid = 0;
  {
    tool::Child child = Spawn({"/bin/sh", "-c", "sleep 1000 & echo $! > $BTHAL_ROOT/grandchild; wait"}, -1);
    grandchild_pid = PidOf("/grandchild");
    child_pid = child.pid();
    EXPECT_FALSE(child.Wait(std::chrono::milliseconds(0)));
    EXPECT_FALSE(Dead(child_pid) || Dead(grandchild_pid));
  }
  EXPECT_TRUE(Dead(child_pid));
  EXPECT_TRUE(WaitFor([&] { return Dead(grandchild_pid); }));
}

TEST_F(SuperviseTest, AChildEndsWhenItsOwnerIsKilled) {
  const pid_t pid = Start("echo $$ > $BTHAL_ROOT/pid; exec sleep 1000");
  kill(supervisor_.pid(), SIGKILL);
  EXPECT_TRUE(supervisor_.Wait(std::chrono::seconds(20)));
  EXPECT_TRUE(WaitFor([&] { return Dead(pid); }));
}

}  // namespace
}  // namespace bthal
