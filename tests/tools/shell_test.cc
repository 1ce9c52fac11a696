// The prompt of `bthal shell`, on a terminal of the test's own and without one.
#include <regex>

#include "bthal/shell/shell_words.h"
#include "support/board_session.h"
#include "support/run_program.h"
#include "support/terminal/screen.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

constexpr char kTab[] = "\t";
constexpr char kUp[] = "\033[A";
constexpr char kPrompt[] = "bthal> ";

// A shell that plays in a folder of its own, which is to be gone afterwards.
class ShellTest : public ::testing::Test {
 protected:
  ShellTest() {
    unsetenv("XDG_RUNTIME_DIR");
    unsetenv("BTHAL_ROOT");
    setenv("TMPDIR", folder_.path, 1);
    setenv("XDG_STATE_HOME", (std::string(folder_.path) + "/state").c_str(), 1);
    setenv("HOME", folder_.path, 1);
  }

  ~ShellTest() override { unsetenv("TMPDIR"); }

  void Start(size_t columns, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {BTHAL_PROGRAM, "shell", "--patch-records", "8"});
    shell_ = std::make_unique<TerminalProgram>(options, columns);
    ASSERT_TRUE(AtPrompt("")) << shell_->raw();
  }

  // Whether the cursor's row is the prompt with this behind it, and nothing more.
  bool AtPrompt(const std::string& typed) {
    return shell_->WaitFor([&](const Screen& screen) {
      std::string row = screen.CursorRow() + " ";
      row.erase(row.find_last_not_of(' ') + 1);
      std::string wanted = kPrompt + typed;
      wanted.erase(wanted.find_last_not_of(' ') + 1);
      return row == wanted;
    });
  }

  size_t Rows(const std::string& expression) const {
    const std::regex pattern(expression);
    return static_cast<size_t>(std::ranges::count_if(
        shell_->screen().rows(), [&](const std::string& row) { return std::regex_search(row, pattern); }));
  }

  bool MoreReports() {
    const size_t before = Rows(kReport);
    return shell_->WaitFor([&](const Screen&) { return Rows(kReport) > before; });
  }

  pid_t Service() const {
    std::smatch pid;
    const std::string raw = shell_->raw();
    EXPECT_TRUE(std::regex_search(raw, pid, std::regex("service  pid ([0-9]+)"))) << raw;
    return pid.empty() ? -1 : std::stoi(pid[1]);
  }

  // Whether nothing that it started or made is left.
  ::testing::AssertionResult AllGone(pid_t service) const {
    if (kill(service, 0) == 0) return ::testing::AssertionFailure() << "the service lives, pid " << service;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path)) {
      if (entry.path().filename() != "state") return ::testing::AssertionFailure() << entry.path() << " is left";
    }
    return ::testing::AssertionSuccess();
  }

  // Whole, from its time to its address.
  static constexpr char kReport[] = "^ +[0-9.]+  > event    LE Advertising Report, [0-9A-F:]{17} ";
  const TemporaryDir folder_;
  std::unique_ptr<TerminalProgram> shell_;
};

class ShellOfWidthTest : public ShellTest, public ::testing::WithParamInterface<size_t> {};

TEST_P(ShellOfWidthTest, CompletesWhatIsTyped) {
  Start(GetParam());
  shell_->Type(std::string("le_set_sc") + kTab);
  ASSERT_TRUE(AtPrompt("le_set_scan_"));
  shell_->Type(kTab);
  EXPECT_TRUE(shell_->Shows("le_set_scan_response_data"));
  ASSERT_TRUE(AtPrompt("le_set_scan_"));
  shell_->Type(std::string("en") + kTab + "f" + kTab);
  ASSERT_TRUE(AtPrompt("le_set_scan_enable filter_duplicates="));
  shell_->Type(std::string("of") + kTab + "en" + kTab + "of" + kTab + "\n");
  EXPECT_TRUE(shell_->Shows("> event    Command Complete: LE Set Scan Enable, success")) << shell_->raw();
  EXPECT_TRUE(AtPrompt(""));
  shell_->Type(std::string("fault late") + kTab + "op" + kTab + "res" + kTab + "\nfaults\n");
  EXPECT_TRUE(shell_->Shows("late-answer opcode=reset   strikes once")) << shell_->raw();
  EXPECT_EQ(shell_->screen().strange(), "");
}

TEST_P(ShellOfWidthTest, WhatHappensLeavesWhatIsTypedAlone) {
  Start(GetParam());
  shell_->Type("le_set_scan_enable on off\n");
  ASSERT_TRUE(MoreReports()) << shell_->raw();
  shell_->Type("read_bd");
  ASSERT_TRUE(AtPrompt("read_bd"));
  ASSERT_TRUE(MoreReports()) << shell_->raw();
  EXPECT_TRUE(AtPrompt("read_bd"));
  EXPECT_EQ(Rows("^bthal> read_bd"), 1U) << shell_->raw();
  // In the middle of the line too; and the window changes meanwhile.
  shell_->Type("\033[D\033[D");
  ASSERT_TRUE(MoreReports()) << shell_->raw();
  shell_->Resize(GetParam() - 10);
  ASSERT_TRUE(MoreReports()) << shell_->raw();
  EXPECT_TRUE(AtPrompt("read_bd")) << shell_->screen().CursorRow();
  shell_->Type("\x15");  // begin anew
  ASSERT_TRUE(AtPrompt(""));
  shell_->Type("read_bd_addr\n");
  EXPECT_TRUE(shell_->Shows("Command Complete: Read BD_ADDR, success")) << shell_->raw();
  EXPECT_EQ(Rows("LE Advertising Report"), Rows(kReport)) << "torn";
  // A line that goes on in the next row.
  const std::string longer = "# " + std::string(GetParam(), 'x') + "end";
  shell_->Type(longer);
  const auto is_whole = [&](const Screen& screen) {
    std::string text;
    for (const std::string& row : screen.rows()) text += row;
    return text.ends_with(kPrompt + longer);
  };
  ASSERT_TRUE(shell_->WaitFor(is_whole)) << shell_->raw();
  ASSERT_TRUE(MoreReports()) << shell_->raw();
  EXPECT_TRUE(shell_->WaitFor(is_whole));
  EXPECT_EQ(Rows("^bthal> # x"), 1U);
  EXPECT_EQ(shell_->screen().strange(), "");
}

INSTANTIATE_TEST_SUITE_P(Columns, ShellOfWidthTest, ::testing::Values(80, 120));

TEST_F(ShellTest, EndsHoweverItIsAskedToAndTakesEverythingAlong) {
  for (const int often_ignored : {SIGHUP, SIGQUIT}) signal(often_ignored, SIG_DFL);  // by whoever runs the test
  const std::vector<std::pair<std::function<void(TerminalProgram&)>, int>> ends = {
      {[](TerminalProgram& shell) { shell.Type("\x04"); }, 0},
      {[](TerminalProgram& shell) { shell.Type("quit\n"); }, 0},
      {[](TerminalProgram& shell) { shell.Type("half a li\x03"); }, 128 + SIGINT},
      {[](TerminalProgram& shell) { shell.Type("half a li\x1c"); }, 128 + SIGQUIT},
      {[](TerminalProgram& shell) { kill(shell.pid(), SIGTERM); }, 128 + SIGTERM},
      {[](TerminalProgram& shell) { shell.HangUp(); }, 128 + SIGHUP}};
  for (const auto& [end, status] : ends) {
    Start(80);
    shell_->Type("read_bd_addr\n");
    ASSERT_TRUE(shell_->Shows("Read BD_ADDR, success"));
    ASSERT_TRUE(AtPrompt(""));
    const pid_t service = Service();
    end(*shell_);
    EXPECT_EQ(shell_->End(), status) << shell_->raw();
    EXPECT_TRUE(AllGone(service)) << shell_->raw();
    EXPECT_TRUE(status == 128 + SIGHUP || shell_->Echoes()) << "the terminal is as it was";
  }
}

TEST_F(ShellTest, RemembersWhatWasTypedForThisUserAlone) {
  Start(80);
  shell_->Type("state\n");
  ASSERT_TRUE(shell_->Shows("controller  "));
  shell_->Type("\x04");
  ASSERT_EQ(shell_->End(), 0);
  struct stat info = {};
  ASSERT_EQ(stat((std::string(folder_.path) + "/state/bthal/history").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
  Start(80);
  shell_->Type(kUp);
  EXPECT_TRUE(AtPrompt("state"));
  EXPECT_EQ(CountEntries(std::string(folder_.path) + "/state/bthal"), 1u);
}

// A limit on files' sizes stands for a full disk.
TEST_F(ShellTest, AFullDiskLeavesTheHistoryAsItWasAndNothingElse) {
  const std::string history = std::string(folder_.path) + "/state/bthal/history";
  fs::create_directories(fs::path(history).parent_path());
  ASSERT_TRUE(::android::base::WriteStringToFile("_HiStOrY_V2_\nreset\n", history));
  shell_ = std::make_unique<TerminalProgram>(
      std::vector<std::string>{"/bin/sh", "-c", kFullDisk + std::string(BTHAL_PROGRAM " shell --attach")}, 120);
  ASSERT_TRUE(AtPrompt(""));
  shell_->Type("help state\n");
  ASSERT_TRUE(shell_->Shows("what the controller does"));
  shell_->Type("\x04");
  EXPECT_EQ(shell_->End(), 0);
  EXPECT_THAT(shell_->raw(), HasSubstr("bthal: cannot write " + history + ": File too large"));
  EXPECT_EQ(ContentOf(history), "_HiStOrY_V2_\nreset\n");
  EXPECT_EQ(CountEntries(fs::path(history).parent_path()), 1u);

  setenv("XDG_RUNTIME_DIR", folder_.path, 1);
  const ProgramResult failed =
      RunProgram({"/bin/sh", "-c", "{ (" + (kFullDisk + std::string(BTHAL_PROGRAM " shell); echo $?; } 2>&1 | cat"))});
  EXPECT_THAT(failed.out, HasSubstr("bt_vendor.conf: File too large"));
  EXPECT_THAT(failed.out, ::testing::EndsWith("\n1\n"));
  EXPECT_TRUE(AllGone(std::numeric_limits<pid_t>::max()));
}

TEST_F(ShellTest, RootLeavesNoHistoryInAnothersHome) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to be root";
  ASSERT_EQ(chown(folder_.path, 65534, 65534), 0);
  unsetenv("XDG_STATE_HOME");
  Start(80);
  shell_->Type("state\n");
  ASSERT_TRUE(shell_->Shows("controller  "));
  shell_->Type("\x04");
  EXPECT_EQ(shell_->End(), 0);
  EXPECT_TRUE(fs::is_empty(folder_.path));
}

TEST_F(ShellTest, TellsOfADeadServiceAndStartsAnother) {
  Start(80);
  shell_->Type("reset\n");
  ASSERT_TRUE(shell_->Shows("Command Complete: Reset, success"));
  shell_->Type("read_bd");
  ASSERT_TRUE(AtPrompt("read_bd"));
  kill(Service(), SIGKILL);
  EXPECT_TRUE(shell_->Shows("* service  was killed by SIGKILL; 'restart' starts it anew"));
  EXPECT_TRUE(shell_->Shows("* hal      the service has died"));
  EXPECT_TRUE(AtPrompt("read_bd"));
  shell_->Type("\x15restart\ninitialize\nread_bd_addr\n");
  EXPECT_TRUE(shell_->Shows("Read BD_ADDR, success")) << shell_->raw();
}

// Nobody is to come: not before the first line either, which waits for a service that may yet be starting.
TEST_F(ShellTest, WaitsForNoServiceThatItWouldHaveToStartItself) {
  const std::string advice = "bthal: the service has died; 'restart' starts it anew, 'initialize'";
  for (const std::string before : {"", "initialize\n"}) {
    Start(120);
    shell_->Type(before);
    ASSERT_TRUE(before.empty() || shell_->Shows("* hal      initialised: SUCCESS"));
    const auto waits = [&] { return CountIn(shell_->raw(), "waiting for the service"); };
    const size_t at_first = waits();
    kill(Service(), SIGKILL);
    ASSERT_TRUE(shell_->Shows("* service  was killed by SIGKILL; 'restart' starts it anew"));
    for (const std::string line : {"read_bd_addr\n", "initialize\n"}) {
      const size_t told = Rows(advice);
      shell_->Type(line);
      EXPECT_TRUE(shell_->WaitFor([&](const Screen&) { return Rows(advice) > told; })) << shell_->raw();
    }
    EXPECT_EQ(waits(), at_first) << shell_->raw();
    EXPECT_THAT(shell_->raw(), Not(HasSubstr("bthal supervise")));
    shell_->Type("restart\ninitialize\nread_bd_addr\n");
    EXPECT_TRUE(shell_->Shows("Read BD_ADDR, success")) << shell_->raw();
    shell_->Type("quit\n");
    EXPECT_EQ(shell_->End(), 0);
  }
}

TEST_F(ShellTest, ReadsPlainLinesWithoutATerminal) {
  const std::vector<std::string> command = {BTHAL_PROGRAM, "shell", "--patch-records", "8"};
  const ProgramResult well =
      RunProgram(command, "fault wrong-status,opcode=0x1009\nread_bd_addr\n# all\nexpect disallowed\nfaults\n");
  EXPECT_EQ(well.status, 0) << well.error;
  EXPECT_THAT(well.out, AllOf(HasSubstr("Read BD_ADDR, command disallowed (0x0C)"), Not(HasSubstr(kPrompt)),
                              Not(HasSubstr("\033"))));
  for (const auto& [line, told] :
       std::vector<std::pair<std::string, std::string>>{{"resett", "'resett' is no command"},
                                                        {"faults all", "faults: takes nothing like 'all'"},
                                                        {"fault rain", "no fault is called 'rain'"},
                                                        {"restart", "restart: the service lives"}}) {
    const ProgramResult failed = RunProgram(command, line + "\nstate\n");
    EXPECT_EQ(failed.status, 1) << line;
    EXPECT_THAT(failed.error, StartsWith("bthal: " + told)) << line;
    EXPECT_THAT(failed.out, Not(HasSubstr("controller  "))) << "the first failure ends it";
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path));
}

TEST_F(ShellTest, ARefusedCommandEndsItWhereNobodyTypes) {
  for (const std::string next : {"read_bd_addr\n", "state\n", "quit\n", ""}) {
    const ProgramResult refused = RunProgram({BTHAL_PROGRAM, "shell", "--patch-records", "8"},
                                             "fault wrong-status,opcode=0x1001\nread_local_version\n\n# and\n" + next);
    EXPECT_EQ(refused.status, 1) << next;
    EXPECT_THAT(
        refused.error,
        ::testing::EndsWith("bthal: the controller refuses: Command Complete: Read Local Version Information, command "
                            "disallowed (0x0C)\n"))
        << next;
    EXPECT_EQ(CountIn(refused.out, "< command"), 1u) << next;
    EXPECT_THAT(refused.out, Not(HasSubstr("controller  on"))) << next;
  }
}

TEST_F(ShellTest, FailsWithADeadServiceWhereNobodyTypes) {
  for (const std::string last : {"sleep 1000", "# nothing more"}) {
    Companion shell;
    ASSERT_TRUE(shell.Start({"shell", "--patch-records", "8"}));
    ASSERT_TRUE(shell.Says("* service  pid "));
    const pid_t service = std::stoi(shell.lines.back().substr(shell.lines.back().find("pid ") + 4));
    shell.talk.Say("initialize\n" + last);
    ASSERT_TRUE(shell.Says("initialised: SUCCESS"));
    kill(service, SIGKILL);
    EXPECT_TRUE(shell.Says("* hal      the service has died"));
    shell.talk.HangUp();
    EXPECT_EQ(shell.End(), 1) << last;
    EXPECT_THAT(shell.lines, Contains(StartsWith("bthal: the service has died"))) << last;
  }
}

class AttachedShellTest : public BoardSessionTest {};

TEST_F(AttachedShellTest, JoinsWhatRunsAndTakesNobodysHalAway) {
  ASSERT_NO_FATAL_FAILURE(StartBoard(SmallBoard()));
  StartService("error");
  TerminalProgram first({BTHAL_PROGRAM, "shell", "--attach"}, 80);
  first.Type("read_bd_addr\n");
  ASSERT_TRUE(first.Shows("Read BD_ADDR, success")) << first.raw();
  const ProgramResult second = RunProgram({BTHAL_PROGRAM, "shell", "--attach"}, "state\nfaults\nread_bd_addr\n");
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.out, HasSubstr("controller  on\n"));
  EXPECT_THAT(second.error, HasSubstr("another client holds the HAL (pid " + std::to_string(first.pid())));
  EXPECT_EQ(RunProgram({BTHAL_PROGRAM, "shell", "--attach", "--take-over"}, "reset\n").status, 0);
  EXPECT_EQ(first.End(), 128 + SIGTERM);
  EXPECT_TRUE(service_->IsAlive());
}

TEST(CompletionTest, KnowsVerbsParametersValuesAndFaults) {
  const auto offered = [](const std::string& line) { return tool::CompleteShellLine(line).candidates; };
  EXPECT_THAT(offered("expect_b"), ElementsAre("expect_bytes"));
  EXPECT_THAT(offered("sta"), Contains("state"));
  EXPECT_THAT(offered("nowait stat"), IsEmpty());
  EXPECT_THAT(offered("nowait read_bd"), ElementsAre("read_bd_addr"));
  EXPECT_THAT(offered("wait le_adv"), Contains("le_advertising_report"));
  EXPECT_THAT(offered("help le_create_ci"), ElementsAre("le_create_cis"));
  EXPECT_THAT(offered("le_scan_enable "), ElementsAre("enable=", "filter_duplicates="));
  EXPECT_THAT(offered("le_scan_enable enable=on "), ElementsAre("filter_duplicates="));
  EXPECT_THAT(offered("le_scan_parameters scan_type="), ElementsAre("active", "passive"));
  EXPECT_THAT(offered("le_set_default_phy tx_phys=le_1m+le_c"), ElementsAre("le_coded"));
  EXPECT_THAT(offered("fault late"), ElementsAre("late-answer"));
  EXPECT_THAT(offered("fault late-answer,m"), ElementsAre("ms="));
  EXPECT_THAT(offered("fault late-answer opcode=sl"), ElementsAre("sleep-mode"));
  EXPECT_THAT(offered("no_such_command x"), IsEmpty());
  EXPECT_THAT(offered("reset # sta"), IsEmpty());
  EXPECT_EQ(tool::CompleteShellLine("le_set_default_phy tx_phys=le_1m+le_c").typed, 4U);
}

}  // namespace
}  // namespace bthal
