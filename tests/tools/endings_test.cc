// How bthal ends: its status tells whether everything arrived, a service that hangs holds nobody, a signal is obeyed at
// once.
#include "bthal/show/printable.h"
#include "support/board_session.h"
#include "support/pty.h"
#include "support/run_program.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

using Arguments = std::vector<std::string>;

std::string Quoted(const Arguments& arguments) {
  std::string line;
  for (const std::string& argument : arguments) line += " '" + argument + "'";
  return line;
}

// Every subcommand that prints something and ends by itself, without a service.
const std::vector<Arguments> kPrints = {{"--help"},
                                        {"--version"},
                                        {"help", "hci"},
                                        {"--completion", "bash"},
                                        {"hci", "list", "reset"},
                                        {"hci", "help"},
                                        {"decode", "030c00"},
                                        {"conf"},
                                        {"check"},
                                        {"services"},
                                        {"prop", "list"},
                                        {"prop", "get", "a"},
                                        {"snoop", "--once"},
                                        {"timeline", "-"}};

class EndingsTest : public BoardSessionTest {
 protected:
  EndingsTest() {
    EXPECT_TRUE(SetProperty("a", "1"));
    // One record: the head of the log, and a Reset.
    root_.Write(
        "/data/vendor/bluetooth/btsnoop_hci_vnd.log",
        std::string("btsnoop\0\0\0\0\1\0\0\3\352\0\0\0\4\0\0\0\4\0\0\0\2\0\0\0\0\0\0\0\0\0\0\0\0\1\3\14\0", 44));
  }

  // Until it is there: waiting for it would be told.
  void Serve() {
    StartBoard();
    StartService("error");
    ASSERT_TRUE(service_->WaitUntilPublished());
  }

  static constexpr char kReport[] =
      "=============================================\nAnchors' History\n"
      "=============================================\n"
      "00:00:00:000: a\033]0;x\a [ IN]\n00:00:00:010: a\033]0;x\a [OUT]\n";
};

// A limit on files' sizes stands for a full disk.
TEST_F(EndingsTest, WhatCannotBePrintedIsToldAndFails) {
  root_.Write("/report", kReport);
  for (const Arguments& arguments : kPrints) {
    const std::string command =
        BTHAL_PROGRAM + Quoted(arguments) + " <" + root_.path() + "/report >" + root_.path() + "/full";
    const ProgramResult result =
        RunProgram({"/bin/sh", "-c", "{ (" + (kFullDisk + command) + "); echo $?; } 2>&1 | cat"});
    EXPECT_EQ(result.out, "bthal: cannot write to standard output: File too large\n1\n") << command;
  }
}

TEST_F(EndingsTest, AnInputThatCannotBeReadIsToldAndFails) {
  for (const std::string& redirection :
       std::vector<std::string>{"< " + root_.path(), "> " + root_.path() + "/file <&1"}) {
    for (const Arguments& arguments : std::vector<Arguments>{{"hci"}, {"hci", "-k"}, {"shell", "--attach"}}) {
      const std::string command = BTHAL_PROGRAM + Quoted(arguments) + " " + redirection;
      const ProgramResult result = RunProgram({"/bin/sh", "-c", command});
      EXPECT_EQ(result.status, 1) << command;
      EXPECT_THAT(result.error, MatchesRegex("bthal: cannot read standard input: (Is a directory|Bad file descriptor); "
                                             "give it a file or a pipe\n"))
          << command;
    }
  }
}

// As `bthal ... | head -1`: no message, and the end that any program would have.
TEST_F(EndingsTest, AReaderThatHasGoneEndsIt) {
  ASSERT_NO_FATAL_FAILURE(Serve());
  std::vector<Arguments> commands = kPrints;
  const TempRoot other;
  for (const Arguments& endless : std::vector<Arguments>{
           {"snoop"}, {"board", "--root", other.path()}, {"hci", "le_scan 1000"}, {"hci", "sleep 1000"}}) {
    commands.push_back(endless);
  }
  setenv("BTHAL_ROOT", root_.path().c_str(), 1);
  for (const Arguments& arguments : commands) {
    unique_fd reader;
    unique_fd writer;
    ASSERT_TRUE(::android::base::Pipe(&reader, &writer));
    reader.reset();
    const TemporaryFile input, error;
    ASSERT_TRUE(::android::base::WriteStringToFile(kReport, input.path));
    tool::Child child = Spawn(BthalCommand(arguments), writer.get(), error.fd, input.fd);
    const std::optional<int> status = child.Wait(seconds(30));
    ASSERT_TRUE(status) << Quoted(arguments);
    EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGPIPE) << Quoted(arguments) << tool::ExitWords(*status);
    EXPECT_EQ(ContentOf(error.path), "") << Quoted(arguments);
  }
}

TEST_F(EndingsTest, AServiceThatHangsIsGivenUp) {
  ASSERT_NO_FATAL_FAILURE(Serve());
  tool::Child holder = Spawn({BTHAL_PROGRAM, "hci", "--call-timeout", "1", "sleep 1000"}, -1);
  ASSERT_TRUE(WaitFor([] { return Bthal({"afh", "--avoid", "3"}).status == 0; }));
  service_->Signal(SIGSTOP);
  root_.Write("/keys", "mode on\n");
  for (Arguments arguments : std::vector<Arguments>{
           {"dump"}, {"afh", "--avoid", "3"}, {"finder", root_.path() + "/keys"}, {"hci", "--take-over", "reset"}}) {
    arguments.insert(arguments.begin() + 1, {"--call-timeout", "0.2"});
    const ProgramResult result = Bthal(arguments);
    EXPECT_EQ(result.status, 1) << Quoted(arguments);
    EXPECT_THAT(result.error, MatchesRegex("bthal: the service \\(pid [0-9]+\\) does not answer; [^\n]+\n"));
  }
  EXPECT_TRUE(holder.Wait(seconds(20))) << "it was taken over";
  EXPECT_EQ(CountIn(Bthal({"services"}).out, "stopped"), 7u);
  // Whoever waits for it obeys all the same.
  tool::Child waiting = Spawn({BTHAL_PROGRAM, "hci", "--call-timeout", "1000", "reset"}, -1);
  ASSERT_TRUE(WaitFor([&] { return root_.Read("/run/bthal/hci-client").empty() && waiting.running(); }));
  waiting.Signal(SIGTERM);
  EXPECT_TRUE(waiting.Wait(seconds(20)));
  service_->Signal(SIGCONT);
  EXPECT_TRUE(WaitFor([] { return CountIn(Bthal({"services"}).out, "alive") == 7; }));
}

// Its socket, its names and its files are there still.
TEST_F(EndingsTest, AServiceThatWasKilledIsNone) {
  ASSERT_NO_FATAL_FAILURE(Serve());
  const std::string pid = std::to_string(service_->pid());
  const LogCapture log;
  ASSERT_NE(FindService<::aidl::android::hardware::bluetooth::IBluetoothHci>(), nullptr);
  service_->Signal(SIGKILL);
  ASSERT_EQ(service_->WaitForEndText(), "signal 9");
  ASSERT_EQ(CountEntries(root_.path() + "/run/bthal/binder"), 1u);
  root_.Write("/keys", "mode on\n");
  for (const Arguments& arguments : std::vector<Arguments>{{"dump"},
                                                           {"afh", "--avoid", "3"},
                                                           {"finder", root_.path() + "/keys"},
                                                           {"hci", "--wait-service", "0", "reset"}}) {
    const ProgramResult result = Bthal(arguments);
    EXPECT_EQ(result.status, 1) << Quoted(arguments);
    EXPECT_THAT(result.error, MatchesRegex("bthal: no service runs on " + root_.path() +
                                           " \\([^ ]+ is not published\\); start it with bthal supervise\n"));
  }
  EXPECT_THAT(Bthal({"services"}).out, ContainsRegex("^dead +" + pid + "  android.hardware.bluetooth.IBluetoothHci"));
  Companion bridge;
  ASSERT_TRUE(bridge.Start({"bridge", "unix", root_.path() + "/hci"}));
  EXPECT_TRUE(bridge.Says("waiting for the service: no service runs on"));
  EXPECT_EQ(FindService<::aidl::android::hardware::bluetooth::IBluetoothHci>(), nullptr);
  EXPECT_EQ(log.Text(), "\n") << "nor has a client anything to complain of";
}

// Whether the signal is in the process's set of that name.
bool IsIn(const char* set, pid_t pid, int signal) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(set)) return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1) != 0;
  }
  return false;
}

// Whether the process has got as far as to catch the signal.
bool Catches(pid_t pid, int signal) { return IsIn("SigCgt:", pid, signal); }

TEST_F(EndingsTest, ASignalIsObeyedWhateverIsBeingDone) {
  signal(SIGHUP, SIG_DFL);  // whoever runs the test may ignore it
  ASSERT_NO_FATAL_FAILURE(Serve());
  const unique_fd listener = ListenAt(root_.Below("/data/vendor/bluetooth/thread_dispatcher_socket"), SOCK_SEQPACKET);
  const TempRoot other;
  setenv("BTHAL_ROOT", root_.path().c_str(), 1);
  unique_fd read_end;
  unique_fd nothing;  // comes on standard input
  ASSERT_TRUE(::android::base::Pipe(&read_end, &nothing));
  // What each says once it is at what would last.
  const std::vector<std::pair<Arguments, std::string>> commands = {
      {{"hci"}, ""},
      {{"hci", "sleep 1000"}, "initialised: SUCCESS"},
      {{"hci", "wait hardware_error 1000"}, "initialised: SUCCESS"},
      {{"hci", "le_scan 1000"}, "LE Advertising Report"},
      {{"snoop"}, ""},
      {{"bridge", "unix", root_.path() + "/hci"}, "is there"},
      {{"thread", "aa"}, "< "},
      {{"supervise", "--", "/bin/sleep", "1000"}, "started /bin/sleep"},
      {{"board", "--root", other.path()}, "playing below"},
      {{"demo", "--root", other.path(), "--pace"}, "Download Minidriver"}};
  for (const auto& [arguments, said] : commands) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
      const TemporaryFile output;
      tool::Child child = Spawn(BthalCommand(arguments), output.fd, output.fd, read_end.get());
      ASSERT_TRUE(WaitFor([&, text = said] {
        return Catches(child.pid(), signal) && ContentOf(output.path).find(text) != std::string::npos;
      })) << Quoted(arguments);
      child.Signal(signal);
      ASSERT_TRUE(child.Wait(seconds(20))) << Quoted(arguments) << " and signal " << signal;
    }
  }
}

// As `nohup bthal ... &` when its terminal is closed. SIGINT, which a script's shell ignores for what it starts so,
// ends them all the same.
TEST_F(EndingsTest, WhatIsToOutliveItsTerminalDoes) {
  const TempRoot other;
  for (const auto& [arguments, said] : std::vector<std::pair<Arguments, std::string>>{
           {{"bridge", "unix", other.path() + "/hci"}, "waiting for the service"},
           {{"supervise", "--", "/bin/sleep", "1000"}, "started /bin/sleep"},
           {{"board"}, "playing below"}}) {
    const TemporaryFile output;
    tool::Child child =
        Spawn({"/bin/sh", "-c", "trap '' HUP INT; exec " BTHAL_PROGRAM + Quoted(arguments)}, output.fd, output.fd);
    ASSERT_TRUE(WaitFor([&, text = said] { return ContentOf(output.path).find(text) != std::string::npos; }))
        << Quoted(arguments) << ContentOf(output.path);
    EXPECT_TRUE(IsIn("SigIgn:", child.pid(), SIGHUP)) << Quoted(arguments);
    child.Signal(SIGHUP);
    child.Signal(SIGINT);
    EXPECT_TRUE(child.Wait(seconds(20))) << Quoted(arguments);
  }
}

TEST_F(EndingsTest, ATerminalGetsNothingThatCommandsIt) {
  root_.Write("/report", kReport);
  const Pty pty;
  const unique_fd terminal(open(pty.host_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  setenv("TERM", "xterm", 1);
  tool::Child child = Spawn({BTHAL_PROGRAM, "timeline", root_.path() + "/report"}, terminal.get());
  const std::optional<int> status = child.Wait(seconds(20));
  EXPECT_EQ(status, 0);
  std::string shown;
  char piece[4096];
  pollfd more = {pty.controller(), POLLIN, 0};
  while (poll(&more, 1, 0) > 0)
    shown.append(piece, static_cast<size_t>(std::max<ssize_t>(read(more.fd, piece, sizeof(piece)), 0)));
  EXPECT_THAT(shown, HasSubstr("a\\x1b]0;x\\x07 "));
  EXPECT_THAT(Bthal({"fr\033ob"}).error, HasSubstr("'fr\\x1bob'"));
}

TEST(TerminalFilterTest, PassesTextAndOurColoursHoweverTheyArrive) {
  const std::vector<std::pair<std::string, std::string>> texts = {
      {"plain\ttext\n", "plain\ttext\n"},
      {"\033[31mred\033[0m", "\033[31mred\033[0m"},
      {"\xC3\xBC \xE2\x82\xAC \xF0\x9F\x98\x80", "\xC3\xBC \xE2\x82\xAC \xF0\x9F\x98\x80"},
      {"\033[2J", "\\x1b[2J"},
      {"\033[8m", "\\x1b[8m"},
      {"\033[38m", "\\x1b[38m"},
      {"\033]0;title\a", "\\x1b]0;title\\x07"},
      {"over\rwritten", "over\\x0dwritten"},
      {"\xC2\x9B"
       "2J \x9B"
       "2J",
       "\\xc2\\x9b2J \\x9b2J"},
      {"\xE0\x80\x9B \xC0\x9B \xED\xA0\x80 \xFF", "\\xe0\\x80\\x9b \\xc0\\x9b \\xed\\xa0\\x80 \\xff"},
      {"\xE2\x80\xAE \xE2\x81\xA6", "\\xe2\\x80\\xae \\xe2\\x81\\xa6"},
      {"cut \xE2\x82", "cut \\xe2\\x82"},
      {"cut \033[3", "cut \\x1b[3"}};
  for (const auto& [text, shown] : texts) {
    for (const size_t piece : {size_t{1}, size_t{2}, text.size()}) {
      tool::TerminalFilter filter;
      std::string passed;
      for (size_t at = 0; at < text.size(); at += piece) passed += filter.Pass(text.substr(at, piece));
      EXPECT_EQ(passed + filter.Rest(), shown) << piece;
    }
  }
  EXPECT_EQ(tool::PrintableLine("two\nlines\t"), "two\\x0alines\\x09");
}

}  // namespace
}  // namespace bthal
