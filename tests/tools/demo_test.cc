// The product's face: `bthal demo`, from end to end.
#include <android-base/strings.h>
#include <sys/file.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "bthal/demo/demo_check.h"
#include "bthal/demo/demo_root.h"
#include "bthal/run/process.h"
#include "bthal/show/terminal.h"
#include "support/board_journal.h"
#include "support/run_program.h"
#include "support/terminal/screen.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

// Everything that was started with this runtime folder, be it child or orphan.
std::vector<std::string> ProcessesWith(const std::string& folder) {
  std::vector<std::string> found;
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", ignored)) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos || name == std::to_string(getpid())) continue;
    if (ContentOf(entry.path() / "environ").find("XDG_RUNTIME_DIR=" + folder) == std::string::npos) continue;
    found.push_back(name + ": " + ContentOf(entry.path() / "comm"));
  }
  return found;
}

// Each demo has a folder of its own for what lasts until logout, and with it a root of its own.
class DemoTest : public ::testing::Test {
 protected:
  DemoTest() {
    setenv("XDG_RUNTIME_DIR", folder_.path, 1);
    unsetenv("BTHAL_ROOT");
  }

  fs::path root() const { return fs::path(folder_.path) / "bthal-demo"; }

  static ProgramResult Demo(std::vector<std::string> options) {
    options.insert(options.begin(), "demo");
    return Bthal(options);
  }

  const TemporaryDir folder_;
};

TEST_F(DemoTest, EverythingHappensAndTheLogsStay) {
  const ProgramResult result = Demo({"--snoop"});
  ASSERT_EQ(result.status, 0) << result.out << result.error;
  EXPECT_EQ(result.error, "");
  // Bring-up, as seen on the wire.
  for (const char* step :
       {"Update Baud Rate, 4000000 bit/s", "Download Minidriver", "] 240/240", "Launch RAM", "Set Sleep Mode"}) {
    EXPECT_THAT(result.out, HasSubstr(step));
  }
  EXPECT_THAT(result.out, Not(HasSubstr("  NO ")));
  // The packet log, and where the logs lie.
  EXPECT_THAT(result.out, ContainsRegex("[0-9]+ commands, [0-9]+ events\n"));
  EXPECT_THAT(result.out, HasSubstr((root() / "data/log/service.log").string()));
  EXPECT_THAT(ContentOf(root() / "data/log/service.log"), HasSubstr("BTQNL controller is ready"));
  EXPECT_THAT(ContentOf(root() / "data/log/board.log"), HasSubstr("patch    launched"));
  EXPECT_TRUE(nlohmann::json::accept(ContentOf(root() / "data/log/bring-up.json")));
  // What was temporary is gone, and so is every process.
  EXPECT_FALSE(fs::exists(root() / "dev"));
  EXPECT_THAT(ProcessesWith(folder_.path), IsEmpty());
}

// Wherever its folder lies.
TEST_F(DemoTest, FitsTheTerminal) {
  unsetenv("XDG_RUNTIME_DIR");
  setenv("TMPDIR", folder_.path, 1);
  TerminalProgram demo({BTHAL_PROGRAM, "demo", "--patch-records", "8"}, 80);
  unsetenv("TMPDIR");
  EXPECT_EQ(demo.End(), 0);
  const std::string shown = tool::WithoutColours(demo.raw());
  EXPECT_THAT(shown, HasSubstr("Everything happened in"));
  for (std::string line : ::android::base::Split(shown, "\n")) {
    if (line.ends_with('\r')) line.pop_back();
    EXPECT_LE(line.size() - (line.rfind('\r') + 1), 80u) << line;
  }
}

// A limit on files' sizes stands for a full disk: the board's log is larger than all that the demo needs.
TEST_F(DemoTest, FailsWithALogThatCannotBeWritten) {
  const ProgramResult result = RunProgram({"/bin/sh", "-c", "ulimit -f 200; TMPDIR=/none exec " BTHAL_PROGRAM " demo"});
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_EQ(result.error, "bthal: cannot write " + root().string() +
                              "/data/log/board.log: File too large\n"
                              "bthal: demo failed: not all of its logs could be written\n");
  EXPECT_THAT(result.out, Not(HasSubstr("Everything happened in")));
  // What each log is stands right behind the longest name, not behind that of a log that is not there.
  EXPECT_THAT(result.out, HasSubstr("bring-up.json  the chart"));
}

TEST_F(DemoTest, WithoutAccelerationTheControllerComesUpForTheClientOnly) {
  const ProgramResult result = Demo({"--no-accel", "--keep", "--chip-id", "174"});
  ASSERT_EQ(result.status, 0) << result.out << result.error;
  EXPECT_LT(result.out.find("* client   pid"), result.out.find("Download Minidriver"));
  EXPECT_TRUE(fs::exists(root() / "vendor/firmware/qnlr/QNL_174.hcd"));
}

TEST_F(DemoTest, AChosenRootIsNotEmptied) {
  fs::create_directories(root());
  std::ofstream(root() / "kept") << "mine";
  const ProgramResult chosen = Demo({"--root", root().string()});
  EXPECT_EQ(chosen.status, 0) << chosen.error;
  EXPECT_EQ(ContentOf(root() / "kept"), "mine");
  EXPECT_TRUE(fs::exists(root() / "vendor"));
}

TEST_F(DemoTest, ARootInUseIsRefused) {
  fs::create_directories(root());
  const unique_fd lock(open(root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX | LOCK_NB), 0);
  for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--root", root().string()}}) {
    const ProgramResult second = Demo(options);
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.error, HasSubstr("another board plays in " + root().string()));
  }
  EXPECT_TRUE(fs::is_empty(root()));
}

// What a demo prepares is emptied; what is not its own, or only reached from it, is left alone.
class DemoRootTest : public DemoTest {
 protected:
  DemoRootTest() {
    fs::create_directories(victim_);
    std::ofstream(victim_ / "kept") << "mine";
  }
  ~DemoRootTest() override { EXPECT_EQ(ContentOf(victim_ / "kept"), "mine"); }

  static std::string Refusal(const std::string& chosen = "") {
    std::string error;
    EXPECT_FALSE(tool::DemoRoot().Prepare(chosen, &error)) << chosen;
    return error;
  }

  const fs::path victim_ = fs::path(folder_.path) / "victim";
};

TEST_F(DemoRootTest, EmptiesOnlyWhatADemoMade) {
  std::string error;
  ASSERT_TRUE(tool::DemoRoot().Prepare("", &error)) << error;
  fs::create_directories(root() / "dev/below");
  std::ofstream(root() / "dev/below/file") << "old";
  fs::create_directory_symlink(victim_, root() / "link");
  fs::create_directory_symlink(victim_, root() / "dev/link");
  tool::DemoRoot second;
  ASSERT_TRUE(second.Prepare("", &error)) << error;
  EXPECT_FALSE(fs::exists(root() / "dev") || fs::exists(fs::symlink_status(root() / "link")));
  second.Clean(tool::DemoOutcome::kInterrupted, false);
  EXPECT_FALSE(fs::exists(root()));

  fs::rename(victim_, root());
  EXPECT_THAT(Refusal(), HasSubstr("holds what no demo has made"));
  fs::rename(root(), victim_);
  fs::create_directory_symlink(victim_, root());
  EXPECT_THAT(Refusal(), HasSubstr("is no folder, or only a link to one"));
}

TEST_F(DemoRootTest, ANameThatOthersCouldHaveTakenIsNeverUsed) {
  fs::create_directory_symlink(victim_, root());
  fs::create_directory_symlink(victim_, root().string() + "-" + std::to_string(geteuid()));
  unsetenv("XDG_RUNTIME_DIR");
  setenv("TMPDIR", folder_.path, 1);
  std::string error;
  std::string paths[2];
  for (std::string& path : paths) {
    tool::DemoRoot fresh;
    ASSERT_TRUE(fresh.Prepare("", &error)) << error;
    path = fresh.path();
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
  }
  EXPECT_NE(paths[0], paths[1]);
  const std::string nowhere = std::string(folder_.path) + "/nowhere";
  setenv("TMPDIR", nowhere.c_str(), 1);
  EXPECT_THAT(Refusal(), MatchesRegex("cannot make the folder " + nowhere +
                                      "/bthal-demo-[^/]+: No such file or directory; correct TMPDIR, or choose one "
                                      "with --root"));
  unsetenv("TMPDIR");
}

TEST_F(DemoRootTest, ARootThatOthersMayChangeIsRefused) {
  const auto refused = [&](const char* why) {
    EXPECT_THAT(Refusal(victim_), HasSubstr(why));
    setenv("BTHAL_ROOT", victim_.c_str(), 1);
    for (const char* command : {"services", "check", "board"}) {
      const ProgramResult result = Bthal({command});
      EXPECT_EQ(result.status, 1) << command;
      EXPECT_THAT(result.error, AllOf(HasSubstr("bthal: "), HasSubstr(why))) << command;
      EXPECT_EQ(result.out, "") << command;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(victim_), {}), 1);
  };
  fs::permissions(victim_, fs::perms::others_write, fs::perm_options::add);
  refused("every user may write into the device root");
  fs::permissions(victim_, fs::perms::owner_all);
  const std::string link = victim_.string() + ".link";
  fs::create_directory_symlink(victim_, link);
  EXPECT_THAT(Refusal(link + "/"), HasSubstr("only a link"));
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder to another user";
  ASSERT_EQ(chown(victim_.c_str(), 65534, 65534), 0);
  refused("belongs to another user, uid 65534");
}

class InterruptedDemo : public DemoTest, public ::testing::WithParamInterface<const char*> {};

// The demo talks into a pipe that holds far less than what it has yet to say: until we read on it cannot come to its
// end, however late the signal.
TEST_P(InterruptedDemo, LeavesNothingBehind) {
  unique_fd read_end;
  unique_fd write_end;
  ASSERT_TRUE(::android::base::Pipe(&read_end, &write_end));
  ASSERT_GE(fcntl(write_end.get(), F_SETPIPE_SZ, 4096), 0);
  tool::Child demo = Spawn({BTHAL_PROGRAM, "demo", "--snoop"}, write_end.get());
  write_end.reset();
  std::string output;
  char c = 0;
  while (output.find(GetParam()) == std::string::npos) {
    ASSERT_EQ(read(read_end.get(), &c, 1), 1) << output;
    output += c;
  }
  // Twice, as some who pass a Ctrl-C on do: the second must not cut the clean end short.
  demo.Signal(SIGINT);
  demo.Signal(SIGINT);
  while (read(read_end.get(), &c, 1) == 1) output += c;
  const std::optional<int> status = demo.Wait(seconds(30));
  ASSERT_TRUE(status);
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 128 + SIGINT) << tool::ExitWords(*status);
  EXPECT_THAT(output, HasSubstr("interrupted; nothing is left running"));
  EXPECT_THAT(ProcessesWith(folder_.path), IsEmpty());
  EXPECT_FALSE(fs::exists(root()));
}

// Before the service, during its first commands, during the patch's boot, with the client there, and within the scan.
INSTANTIATE_TEST_SUITE_P(Steps, InterruptedDemo,
                         ::testing::Values("* board", "* service", "Check OTP", "launched", "* client", "* hal",
                                           "LE Set Scan Enable, on"));

TEST_F(DemoTest, ADemoThatIsKilledTakesItsProcessesAlong) {
  const std::string output = folder_.path + std::string("/output");
  const unique_fd out(open(output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  tool::Child demo = Spawn({BTHAL_PROGRAM, "demo"}, out.get());
  ASSERT_TRUE(WaitFor([&] { return ContentOf(output).find("* service") != std::string::npos; })) << ContentOf(output);
  kill(demo.pid(), SIGKILL);
  ASSERT_TRUE(demo.Wait(seconds(30)));
  EXPECT_TRUE(WaitFor([&] { return ProcessesWith(folder_.path).empty(); }));
}

// --- the judge ---

JournalEntry Entry(WireEvent event, uint64_t value = 0, uint64_t total = 0) {
  JournalEntry entry{};
  entry.event = event;
  entry.value = value;
  entry.total = total;
  return entry;
}

JournalEntry Packet(WireEvent event, uint8_t kind, std::vector<uint8_t> bytes) {
  JournalEntry entry = Entry(event);
  entry.packet_type = kind;
  entry.bytes = std::move(bytes);
  return entry;
}

struct Story {
  std::vector<JournalEntry> bring_up = {
      Entry(WireEvent::kPowerOn),
      Entry(WireEvent::kPatchRecord, 239, 240),
      Entry(WireEvent::kPatchRecord, 240, 240),
      Entry(WireEvent::kPatchLaunched),
      Entry(WireEvent::kSpeed, 4000000),
      Entry(WireEvent::kHostSpeed, 4000000),
      Entry(WireEvent::kSleepModeSet),
  };
  std::vector<JournalEntry> client = {
      Packet(WireEvent::kReceived, 1, {0x03, 0x0C, 0x00}),
      Packet(WireEvent::kSent, 4, {0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00}),
      Packet(WireEvent::kReceived, 1, {0x01, 0x10, 0x00}),
      Packet(WireEvent::kSent, 4, {0x0E, 0x04, 0x01, 0x01, 0x10, 0x00}),
      Packet(WireEvent::kReceived, 1, {0x09, 0x10, 0x00}),
      Packet(WireEvent::kSent, 4, {0x0E, 0x0A, 0x01, 0x09, 0x10, 0x00, 0x33, 0x22, 0x11, 0xCC, 0xBB, 0xAA}),
      Packet(WireEvent::kReceived, 1, {0x0C, 0x20, 0x02, 0x01, 0x00}),
      Packet(WireEvent::kSent, 4, {0x3E, 0x04, 0x02, 0x01, 0x00, 0x00}),
      Packet(WireEvent::kReceived, 1, {0x0C, 0x20, 0x02, 0x00, 0x00}),
  };

  size_t Untrue() const {
    std::vector<JournalEntry> journal = bring_up;
    journal.insert(journal.end(), client.begin(), client.end());
    size_t untrue = 0;
    for (const tool::DemoFact& fact : tool::CheckDemo(journal, bring_up.size(), {})) untrue += fact.holds ? 0 : 1;
    return untrue;
  }
};

TEST(DemoCheckTest, EveryMissingStepIsMissed) {
  EXPECT_EQ(Story().Untrue(), 0u);
  // Record 239 alone, and the board's answer to a command that was never sent, are no evidence.
  for (const size_t needed : {0, 2, 3, 4, 5, 6}) {
    Story story;
    story.bring_up.erase(story.bring_up.begin() + static_cast<ptrdiff_t>(needed));
    if (needed == 2) story.bring_up[1].value = 200;
    EXPECT_EQ(story.Untrue(), 1u) << "bring-up " << needed;
  }
  for (size_t needed = 0; needed < Story().client.size(); ++needed) {
    Story story;
    story.client.erase(story.client.begin() + static_cast<ptrdiff_t>(needed));
    EXPECT_EQ(story.Untrue(), 1u) << "client " << needed;
  }
  // What the client asks for must come from the client.
  Story early;
  early.bring_up.insert(early.bring_up.end(), early.client.begin(), early.client.end());
  early.client.clear();
  EXPECT_EQ(early.Untrue(), 3u);
  // Nor may a step be refused, the address be another, or anything be lost.
  Story refused, other_address, lossy;
  refused.client[1].bytes[5] = 0x0C;
  other_address.client[5].bytes[6] = 0x34;
  lossy.client.push_back(Entry(WireEvent::kLostBytes, 3));
  for (const Story& story : {refused, other_address, lossy}) EXPECT_EQ(story.Untrue(), 1u);
}

}  // namespace
}  // namespace bthal
