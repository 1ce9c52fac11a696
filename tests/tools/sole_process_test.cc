// One service, one supervisor and one board on a device root: whoever comes second leaves the first alone.
#include <host/role.h>
#include <host/service_registry.h>

#include "support/board_session.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

class SoleProcessTest : public BoardSessionTest {
 protected:
  // What a second one could break: every file, fifo, socket and entry below the root, but what the first one's log
  // gets.
  std::set<std::string> Listing() const {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(root_.path())) {
      const fs::file_time_type time = entry.is_symlink() ? fs::file_time_type() : entry.last_write_time();
      if (entry.is_regular_file() || entry.is_symlink()) {
        names.insert(entry.path().string() + "@" + std::to_string(time.time_since_epoch().count()));
      } else {
        names.insert(entry.path());
      }
    }
    return names;
  }

  static std::set<int> Publishers() {
    std::set<int> pids;
    for (const auto& service : host::ListServices()) {
      if (service.alive) pids.insert(service.pid);
    }
    return pids;
  }
};

TEST_F(SoleProcessTest, ASecondServiceEndsBeforeItTouchesAnything) {
  StartBoard();
  ASSERT_NO_FATAL_FAILURE(OpenSession("error"));
  const std::set<int> publishers = Publishers();
  ASSERT_EQ(publishers.size(), 1u);
  const std::string pid = std::to_string(*publishers.begin());
  const std::set<std::string> before = Listing();
  const size_t powered = Count(*board_, sim::WireEvent::kPowerOn);

  const ProgramResult second = RunProgram({SERVICE_PROGRAM});
  EXPECT_EQ(second.status, host::kRoleTakenStatus);
  EXPECT_EQ(second.error, fs::path(SERVICE_PROGRAM).filename().string() + " is already running on " + root_.path() +
                              " (pid " + pid + ")\n");
  const ProgramResult supervisor = Bthal({"supervise"});
  EXPECT_EQ(supervisor.status, host::kRoleTakenStatus);
  EXPECT_EQ(supervisor.error,
            "bthal: a service is already running on " + root_.path() + " (pid " + pid + "); end it first\n");
  fs::remove(root_.path() + "/run/bthal/supervisor.lock");
  const ProgramResult demo = Bthal({"demo", "--root", root_.path()});
  EXPECT_EQ(demo.status, 1);
  EXPECT_EQ(demo.error, "bthal: demo failed: a service is already running on " + root_.path() + " (pid " + pid +
                            "); end it, or choose another folder with --root\n");

  EXPECT_EQ(Listing(), before);
  EXPECT_EQ(Publishers(), publishers);
  EXPECT_EQ(Count(*board_, sim::WireEvent::kPowerOn), powered);
  EXPECT_TRUE(Exchange({0x03, 0x0C, 0x00}));
  // A supervisor of something else knows whose wake lock it is.
  const ProgramResult stranger = Bthal({"supervise", "--once", "--", "/bin/false"});
  EXPECT_EQ(stranger.status, 1);
  EXPECT_THAT(stranger.error, Not(HasSubstr("released the wake lock")));
}

// The claim goes with the process, however it goes, and however often.
TEST_F(SoleProcessTest, AKilledServiceKeepsNobodyOut) {
  StartBoard();
  for (int round = 0; round < 5; ++round) {
    StartService("error");
    ASSERT_TRUE(service_->WaitUntilPublished()) << service_->Log();
    const tool::Child heir =
        Spawn({"/bin/sh", "-c", "kill -KILL " + std::to_string(*Publishers().begin()) + "; exec " SERVICE_PROGRAM}, -1);
    EXPECT_TRUE(WaitFor([&] { return Publishers() == std::set<int>{heir.pid()}; }));
  }
}

TEST_F(SoleProcessTest, ASecondSupervisorIsRefused) {
  root_.Write("/sys/power/wake_unlock", "");
  const tool::Child first =
      Spawn({BTHAL_PROGRAM, "supervise", "--", "/bin/sh", "-c", "echo > $BTHAL_ROOT/up; exec sleep 1000"}, -1);
  ASSERT_TRUE(WaitFor([&] { return root_.Read("/up") == "\n"; }));
  const std::string refusal =
      "a supervisor is already running on " + root_.path() + " (pid " + std::to_string(first.pid()) + ")";
  const std::set<std::string> before = Listing();
  for (const std::vector<std::string>& program : {std::vector<std::string>{}, {"--", "/bin/true"}}) {
    std::vector<std::string> arguments = {"supervise"};
    arguments.insert(arguments.end(), program.begin(), program.end());
    const ProgramResult second = Bthal(arguments);
    EXPECT_EQ(second.status, host::kRoleTakenStatus);
    EXPECT_EQ(second.error, "bthal: " + refusal + "\n");
  }
  EXPECT_THAT(Bthal({"demo", "--root", root_.path()}).error, HasSubstr("demo failed: " + refusal));
  EXPECT_EQ(Listing(), before);
}

// Somebody has started another while the supervised one was down: neither supervisor nor units try again and again.
TEST_F(SoleProcessTest, ARefusedServiceIsNotStartedAgain) {
  const std::string name = "/" + fs::path(SERVICE_PROGRAM).filename().string();
  const std::string program = root_.path() + name;
  root_.Write(name,
              "#!/bin/sh\necho >> $BTHAL_ROOT/runs\nwhile [ ! -e $BTHAL_ROOT/go ]; do sleep 0.01; done\n"
              "exec " SERVICE_PROGRAM "\n");
  fs::permissions(program, fs::perms::owner_all);
  Companion supervisor;
  ASSERT_TRUE(supervisor.Start({"supervise", "--", program}));
  ASSERT_TRUE(WaitFor([&] { return root_.Read("/runs") == "\n"; }));
  StartBoard();
  StartService("error");
  ASSERT_TRUE(service_->WaitUntilPublished()) << service_->Log();
  root_.Write("/go", "");
  EXPECT_EQ(supervisor.End(), host::kRoleTakenStatus);
  EXPECT_EQ(root_.Read("/runs"), "\n");
  EXPECT_THAT(supervisor.lines, Contains("bthal: a service is already running on " + root_.path() + " (pid " +
                                         std::to_string(service_->pid()) + "); end it first"));
  EXPECT_THAT(ContentOf(SOURCE_TREE "/packaging/linux/bthal.service.in"),
              HasSubstr("\nRestartPreventExitStatus=" + std::to_string(host::kRoleTakenStatus) + "\n"));
}

}  // namespace
}  // namespace bthal
