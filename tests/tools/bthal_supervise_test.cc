// Programs that really die, and what supervises them.
#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "bthal/run/process.h"
#include "bthal/show/last_words.h"
#include "support/run_program.h"
#include "support/temp_root.h"
#include "support/wait_for.h"

namespace bthal {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::ProgramResult;
using test::RunProgram;
using test::TempRoot;
using test::WaitFor;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

ProgramResult Supervise(std::vector<std::string> options, const std::string& script) {
  std::vector<std::string> arguments = {BTHAL_PROGRAM, "supervise"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.insert(arguments.end(), {"--", "/bin/sh", "-c", script});
  return RunProgram(arguments);
}

size_t Count(const std::string& text, const std::string& piece) {
  size_t count = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
  return count;
}

bool Alive(pid_t pid) { return kill(pid, 0) == 0; }

pid_t PidIn(const std::string& path) {
  pid_t pid = 0;
  std::ifstream(path) >> pid;
  return pid;
}

TEST(SuperviseTest, RestartsWhatIsKilledAndSaysByWhat) {
  const TempRoot root;
  const ProgramResult result = Supervise({"--max-restarts", "2"}, "echo run >> $BTHAL_ROOT/runs; kill -KILL $$");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(root.Read("/runs"), "run\nrun\nrun\n");
  EXPECT_EQ(Count(result.error, "/bin/sh was killed by SIGKILL after "), 3u) << result.error;
  EXPECT_THAT(result.error, HasSubstr("bthal: gave up after 2 restarts\n"));
}

// Only the same death in a row makes the pauses longer.
TEST(SuperviseTest, SlowsDownForTheSameDeathAgainAndAgain) {
  const TempRoot root;
  const ProgramResult result = Supervise({"--max-restarts", "6"},
                                         "echo >> $BTHAL_ROOT/runs; case $(wc -l < $BTHAL_ROOT/runs) in "
                                         "1|3) kill -KILL $$;; 2) exit 3;; *) kill -SEGV $$;; esac");
  std::string pauses;
  for (const std::string& line : ::android::base::Split(result.error, "\n")) {
    if (line.starts_with("supervise: restarting") || line.find("the same death") != std::string::npos) {
      pauses += line + "\n";
    }
  }
  EXPECT_THAT(pauses, ::testing::MatchesRegex("(supervise: restarting at once\n){4}"
                                              "supervise: restarting in 0.1 s\n"
                                              "supervise: the same death 3 times within a minute: slowing down; .*\n"
                                              "supervise: restarting in 1 s\n"));
}

// A pipe that nobody drains: the program still talks its fill, the supervisor still obeys, and what was lost is told to
// whoever reads later.
class UnreadSupervisor : public ::testing::TestWithParam<int> {
 protected:
  UnreadSupervisor() {
    tool::SpawnOptions options;
    options.arguments = {
        BTHAL_PROGRAM,
        "supervise",
        "--",
        "/bin/sh",
        "-c",
        "seq 100001 400000; echo > $BTHAL_ROOT/said; while [ ! -e $BTHAL_ROOT/go ]; do sleep 0.01; done; "
        "echo the end; exec sleep 1000"};
    ::android::base::unique_fd write_end;
    EXPECT_TRUE(::android::base::Pipe(&read_end_, &write_end));
    options.standard_output = options.standard_error = write_end.get();
    std::string error;
    supervisor_ = tool::Child::Spawn(options, &error);
    EXPECT_TRUE(supervisor_.running()) << error;
    write_end.reset();
    EXPECT_TRUE(WaitFor([&] { return std::filesystem::exists(root_.path() + "/said"); }));
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

  const TempRoot root_;
  ::android::base::unique_fd read_end_;
  tool::Child supervisor_;
  std::string output_;
};

TEST_P(UnreadSupervisor, EndsAllTheSame) {
  supervisor_.Signal(GetParam());
  const std::optional<int> status = supervisor_.Wait(seconds(20));
  ASSERT_TRUE(status);
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << tool::ExitWords(*status);
}

INSTANTIATE_TEST_SUITE_P(Signals, UnreadSupervisor, ::testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST_F(UnreadSupervisor, CountsTheLinesThatItDrops) {
  ASSERT_TRUE(ReadUntil("lines dropped"));
  root_.Write("/go", "");
  ASSERT_TRUE(ReadUntil("the end\n"));
  size_t numbers = 0;
  size_t dropped = 0;
  for (const std::string& line : ::android::base::Split(output_, "\n")) {
    unsigned long count = 0;
    if (sscanf(line.c_str(), "supervise: %lu lines dropped: nobody was reading", &count) == 1) dropped += count;
    if (line.size() == 6 && line.find_first_not_of("0123456789") == std::string::npos) ++numbers;
  }
  EXPECT_GT(dropped, 0u);
  EXPECT_EQ(numbers + dropped, 300000u);
}

TEST(SuperviseTest, OnceGivesTheProgramsOwnStatus) {
  const TempRoot root;
  EXPECT_EQ(Supervise({"--once"}, "exit 0").status, 0);
  const ProgramResult failed = Supervise({"--once"}, "echo to-out; exit 7");
  EXPECT_EQ(failed.status, 7);
  EXPECT_THAT(failed.error, HasSubstr("to-out\n"));
  EXPECT_THAT(failed.error, HasSubstr("exited with status 7"));
  EXPECT_EQ(Supervise({"--once"}, "kill -SEGV $$").status, 128 + SIGSEGV);
}

TEST(SuperviseTest, RepeatsTheFatalLineOrElseTheLastErrors) {
  const TempRoot root;
  const std::string time = "11-21 09:02:20.881 21582 21586 ";
  const ProgramResult fatal = Supervise(
      {"--once"}, "echo '" + time + "E tag: an error' >&2; echo '" + time + "F tag: the end' >&2; kill -ABRT $$");
  EXPECT_THAT(fatal.error, HasSubstr("  it said: " + time + "F tag: the end\n"));
  EXPECT_THAT(fatal.error, Not(HasSubstr("  it said: " + time + "E")));
  EXPECT_THAT(fatal.error, HasSubstr("was killed by SIGABRT"));
  const ProgramResult quiet =
      Supervise({"--once"}, "for i in 1 2 3 4; do echo '" + time + "E tag: error '$i; done; kill -KILL $$");
  EXPECT_EQ(Count(quiet.error, "it said: "), 3u);
  EXPECT_THAT(quiet.error, HasSubstr("it said: " + time + "E tag: error 2\n"));
}

TEST(LastWordsTest, KnowsBothLogFormats) {
  EXPECT_EQ(tool::LogSeverity("11-21 09:02:20.881 21582 21586 W some.tag: text"), 'W');
  EXPECT_EQ(tool::LogSeverity("some.tag F 11-21 09:02:20 21582 21586 file.cc:7] text"), 'F');
  for (const char* other : {"", "F", "a plain line", "#0 F in a stack trace", "11-21 09:02:20.881 1 2 X tag: text"}) {
    EXPECT_EQ(tool::LogSeverity(other), 0) << other;
  }
}

TEST(SuperviseTest, ReleasesTheWakeLockOfTheDead) {
  const TempRoot root;
  root.Write("/sys/power/wake_unlock", "");
  const ProgramResult result = Supervise({"--once"}, "kill -KILL $$");
  EXPECT_EQ(root.Read("/sys/power/wake_unlock"), "bthal_wakelock\n");
  EXPECT_THAT(result.error, HasSubstr("released the wake lock bthal_wakelock"));
}

class StoppedSupervisor : public ::testing::TestWithParam<int> {};

// Whatever the supervisor is told, the program is asked to end with SIGTERM, and is gone before the supervisor is.
TEST_P(StoppedSupervisor, EndsTheProgramInOrder) {
  const TempRoot root;
  std::string error;
  tool::Child supervisor = tool::Child::Spawn(
      {.arguments = {BTHAL_PROGRAM, "supervise", "--", "/bin/sh", "-c",
                     "trap 'echo asked > $BTHAL_ROOT/asked; exit 0' TERM; echo $$ > $BTHAL_ROOT/pid; "
                     "while :; do sleep 0.05; done"},
       .environment = {}},
      &error);
  ASSERT_TRUE(supervisor.running()) << error;
  ASSERT_TRUE(WaitFor([&] { return PidIn(root.path() + "/pid") > 0; }));
  const pid_t pid = PidIn(root.path() + "/pid");
  supervisor.Signal(GetParam());
  const std::optional<int> status = supervisor.Wait(seconds(20));
  ASSERT_TRUE(status);
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << tool::ExitWords(*status);
  EXPECT_EQ(root.Read("/asked"), "asked\n");
  EXPECT_FALSE(Alive(pid));
}

INSTANTIATE_TEST_SUITE_P(Signals, StoppedSupervisor, ::testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST(ProcessTest, AChildAndItsOwnChildrenEndWithTheirOwner) {
  const TempRoot root;
  pid_t child_pid = 0;
  pid_t grandchild_pid = 0;
  {
    std::string error;
    tool::Child child = tool::Child::Spawn(
        {.arguments = {"/bin/sh", "-c", "sleep 1000 & echo $! > $BTHAL_ROOT/pid; wait"}, .environment = {}}, &error);
    ASSERT_TRUE(child.running()) << error;
    ASSERT_TRUE(WaitFor([&] { return (grandchild_pid = PidIn(root.path() + "/pid")) > 0; }));
    child_pid = child.pid();
    EXPECT_FALSE(child.Wait(milliseconds(0)));
    EXPECT_TRUE(Alive(child_pid) && Alive(grandchild_pid));
  }
  EXPECT_FALSE(Alive(child_pid));
  EXPECT_TRUE(WaitFor([&] {
    // An orphan is reaped by whoever adopts it; where nobody does, it stays a zombie.
    std::ifstream status("/proc/" + std::to_string(grandchild_pid) + "/stat");
    std::string fields((std::istreambuf_iterator<char>(status)), {});
    return !Alive(grandchild_pid) || fields.find(") Z ") != std::string::npos;
  }));
}

TEST(ProcessTest, AChildEndsWhenItsOwnerIsKilled) {
  const TempRoot root;
  std::string error;
  tool::Child supervisor = tool::Child::Spawn(
      {.arguments = {BTHAL_PROGRAM, "supervise", "--", "/bin/sh", "-c", "echo $$ > $BTHAL_ROOT/pid; exec sleep 1000"},
       .environment = {}},
      &error);
  ASSERT_TRUE(WaitFor([&] { return PidIn(root.path() + "/pid") > 0; }));
  const pid_t pid = PidIn(root.path() + "/pid");
  kill(supervisor.pid(), SIGKILL);
  EXPECT_TRUE(supervisor.Wait(seconds(20)));
  EXPECT_TRUE(WaitFor([&] {
    std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
    std::string fields((std::istreambuf_iterator<char>(status)), {});
    return !Alive(pid) || fields.find(") Z ") != std::string::npos;
  }));
}

TEST(ProcessTest, WhatCannotBeRunSaysWhy) {
  std::string error;
  EXPECT_FALSE(tool::Child::Spawn({.arguments = {"/nowhere/program"}, .environment = {}}, &error).running());
  EXPECT_EQ(error, "cannot run /nowhere/program: No such file or directory");
  EXPECT_FALSE(tool::Child::Spawn({.arguments = {"/etc/passwd"}, .environment = {}}, &error).running());
  EXPECT_THAT(error, HasSubstr("Permission denied"));
}

}  // namespace
}  // namespace bthal
