// bthal as a client of the real service, on the virtual board.
#include "support/board_session.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

class OnBoard : public BoardSessionTest {
 protected:
  // Before the service starts a test may still set properties and write files.
  void Start(const std::vector<std::string>& faults = {}) {
    ASSERT_NO_FATAL_FAILURE(StartBoard(SmallBoard(faults)));
    StartService("error");
  }

  // A client that has the HAL until HangUp.
  void TakeHal() {
    ASSERT_TRUE(holder_.Start({"hci"}));
    holder_.talk.Say("initialize");
    ASSERT_TRUE(holder_.Says("initialised: SUCCESS"));
  }

  Companion holder_;
};

TEST_F(OnBoard, AScriptFailsAtTheLineThatIsNotAnswered) {
  Start({"no-answer,opcode=0x1001"});
  root_.Write("/smoke.hci", "reset\n\n# the next one stays unanswered\nread_local_version\n");
  const ProgramResult silent = Bthal({"hci", "--timeout", "0.3", "--script", root_.path() + "/smoke.hci"});
  EXPECT_EQ(silent.status, 1);
  EXPECT_THAT(silent.error, HasSubstr("bthal: no answer to Read Local Version Information within 0.3 s\n"));
  EXPECT_THAT(silent.error, HasSubstr("/smoke.hci, line 4: read_local_version"));
}

TEST_F(OnBoard, ARefusedCommandEndsItUnlessThatIsExpected) {
  Start({"wrong-status,opcode=0x1001,status=0x0c,count=always"});
  ASSERT_TRUE(service_->WaitUntilPublished());  // waiting for it would be told
  const std::string said =
      "bthal: the controller refuses: Command Complete: Read Local Version Information, command "
      "disallowed (0x0C)\n";
  const std::string refused = "read_local_version\n\n", expected = refused + "expect disallowed\n",
                    more = "read_bd_addr\n";
  const auto count = [](const ProgramResult& result) { return CountIn(result.out, "< command"); };
  for (const bool from_file : {false, true}) {
    const auto run = [&](const std::string& script, std::vector<std::string> options = {}) {
      root_.Write("/script", script);
      options.insert(options.begin(), {"hci", "--script", from_file ? root_.path() + "/script" : "-"});
      return Bthal(options, script);
    };
    const std::string where = from_file ? "bthal: " + root_.path() + "/script, line 1: read_local_version\n" : "";
    ProgramResult result = run(refused + more);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, said + where);
    EXPECT_EQ(count(result), 1u);
    EXPECT_EQ(run(refused).error, said + where);
    result = run(refused + more, {"--keep-going"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, said + where);
    EXPECT_EQ(count(result), 2u);
    result = run(expected + more);
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(count(result), 2u);
  }
}

TEST_F(OnBoard, ADeadServiceIsNoticedAndItsSuccessorFound) {
  Start();
  TakeHal();
  service_->Signal(SIGKILL);
  EXPECT_TRUE(holder_.Says("the service has died"));
  StartService("error");
  holder_.talk.Say("initialize");
  EXPECT_TRUE(holder_.Says("initialised: SUCCESS"));
  holder_.talk.Say("read_bd_addr");
  EXPECT_TRUE(holder_.Says("Read BD_ADDR, success"));
  holder_.talk.HangUp();
  EXPECT_EQ(holder_.End(), 0);
}

// Nobody sleeps on behind a dead service, nor ends well with one.
TEST_F(OnBoard, ItFailsWithTheServiceThatDiesUnderIt) {
  Start();
  for (const std::string line : {"sleep 1000", "le_scan 1000", ""}) {
    Companion client;
    ASSERT_TRUE(client.Start(line.empty() ? std::vector<std::string>{"hci"} : std::vector{std::string("hci"), line}));
    if (line.empty()) client.talk.Say("initialize");
    ASSERT_TRUE(client.Says(line.starts_with("le_scan") ? "LE Set Scan Enable, success" : "initialised: SUCCESS"));
    service_->Signal(SIGKILL);
    EXPECT_TRUE(client.Says("* hal      the service has died")) << line;
    client.talk.HangUp();
    EXPECT_EQ(client.End(), 1) << line;
    EXPECT_EQ(std::ranges::count_if(client.lines,
                                    [](const std::string& told) {
                                      return told.starts_with("bthal: the service has died; its log says why");
                                    }),
              1)
        << line;
    StartService("error");
  }
}

TEST_F(OnBoard, WhoWaitsWhenTheServiceDiesIsServedByItsSuccessor) {
  sim::BoardOptions options = SmallBoard();
  options.faults = {"no-answer,opcode=reset"};  // a bring-up of two seconds to wait for
  ASSERT_NO_FATAL_FAILURE(StartBoard(options));
  StartService("info");
  ASSERT_TRUE(holder_.Start({"hci"}));
  holder_.talk.Say("read_bd_addr");
  ASSERT_TRUE(service_->WaitForLog("Init thread is running. Waiting for it to exit"));
  service_->Signal(SIGKILL);
  StartService("error");
  EXPECT_TRUE(holder_.Says("Read BD_ADDR, success"));
  holder_.talk.HangUp();
  EXPECT_EQ(holder_.End(), 0);
}

TEST_F(OnBoard, ASecondClientIsRefusedOrTakesOver) {
  Start();
  TakeHal();
  for (const char* harmless : {"list", "help", "resett"}) {
    EXPECT_THAT(Bthal({"hci", harmless}).out, Not(HasSubstr("* hal "))) << harmless;
  }
  const ProgramResult refused = Bthal({"hci", "read_bd_addr"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.error, "bthal: another client holds the HAL (pid " + std::to_string(holder_.talk.pid()) + ", " +
                               BTHAL_PROGRAM + " hci); --take-over ends it\n");
  holder_.talk.Say("read_bd_addr");  // the first one has not noticed
  EXPECT_TRUE(holder_.Says("Read BD_ADDR, success"));

  const ProgramResult second = Bthal({"hci", "--take-over", "read_bd_addr"});
  EXPECT_EQ(second.status, 0) << second.error;
  EXPECT_EQ(holder_.End(), 128 + SIGTERM);
  EXPECT_THAT(holder_.lines, Contains(HasSubstr("* hal      closed")));
  EXPECT_THAT(holder_.lines, Contains(MatchesRegex("bthal: another client has taken the HAL over \\(pid [0-9]+, "
                                                   ".+ hci --take-over read_bd_addr\\)")));

  // A client that is killed, or that gives the HAL back, is in nobody's way. Nor is every end a taking over.
  TakeHal();
  const std::string end = "kill " + std::to_string(holder_.talk.pid()) + "; sleep 1000; : hci --take-over";
  const tool::Child other = Spawn({"/bin/sh", "-c", end}, -1);
  EXPECT_EQ(holder_.End(), 128 + SIGTERM);
  EXPECT_THAT(holder_.lines, Not(Contains(HasSubstr("taken the HAL over (pid " + std::to_string(other.pid())))));
  TakeHal();
  kill(holder_.talk.pid(), SIGKILL);
  EXPECT_EQ(holder_.End(), -1);
  EXPECT_EQ(Bthal({"hci", "read_bd_addr"}).status, 0);
  TakeHal();
  holder_.talk.Say("close");
  EXPECT_TRUE(holder_.Says("closed"));
  EXPECT_EQ(Bthal({"hci", "read_bd_addr"}).status, 0);
  EXPECT_TRUE(service_->IsAlive());
}

TEST_F(OnBoard, TheReportIsThere) {
  Start();
  TakeHal();
  const ProgramResult chart = Bthal({"timeline", "-"}, Bthal({"dump"}).out);
  EXPECT_EQ(chart.status, 0) << chart.error;
  EXPECT_THAT(chart.out, AllOf(ContainsRegex("perform_init +0 "), ContainsRegex("\n  firmware_download +[0-9]+ "),
                               ContainsRegex("\ninitialize_impl ")));
  EXPECT_THAT(chart.out, Not(HasSubstr("(")));
}

TEST_F(OnBoard, ThePacketLogIsFollowedLive) {
  ASSERT_TRUE(SetProperty("ro.build.type", "userdebug"));
  ASSERT_TRUE(SetProperty("persist.bluetooth.vendor.btsnoop", "true"));
  Start();
  Companion snoop;
  ASSERT_TRUE(snoop.Start({"snoop"}));
  TakeHal();
  holder_.talk.Say("read_local_name");
  EXPECT_TRUE(snoop.Says("> event    Command Complete: Read Local Name, success"));
  EXPECT_THAT(snoop.lines, Contains(HasSubstr("< command  Write BD_ADDR, AA:BB:CC:11:22:33")));
  kill(snoop.talk.pid(), SIGINT);
  EXPECT_EQ(snoop.End(), 0);

  // The log's fields, all of its packets well formed; and a log that ends too early.
  const std::string log = root_.path() + "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
  const ProgramResult decoded = Bthal({"decode", "-v", log});
  EXPECT_EQ(decoded.status, 0) << decoded.error;
  EXPECT_THAT(decoded.out, ContainsRegex("    chip_id +188\n"));
  root_.Write("/cut.log", ContentOf(log).substr(0, 50));
  EXPECT_THAT(Bthal({"decode", root_.path() + "/cut.log"}).error, HasSubstr("cut.log ends within a record"));
}

TEST_F(OnBoard, TheExtensionsReachTheController) {
  Start();
  ProgramResult off;
  ASSERT_TRUE(WaitFor([&] {  // until the service has come to publishing
    off = Bthal({"afh", "--avoid", "0-7"});
    return off.error.find("is not published") == std::string::npos;
  }));
  EXPECT_EQ(off.status, 1);
  EXPECT_THAT(off.error, HasSubstr("Bluetooth is off"));

  TakeHal();
  // The extensions are started behind the client's back: ask until they are.
  ASSERT_TRUE(WaitFor([] { return Bthal({"afh", "--avoid", "0-7"}).status == 0; }));
  EXPECT_TRUE(Receives(*board_, 1, {0x3F, 0x0C, 0x0A, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}));
  EXPECT_EQ(Bthal({"afh", "--avoid", "0-58"}).status, 0) << "as many as a controller must be left with";
  EXPECT_TRUE(Receives(*board_, 1, {0x3F, 0x0C, 0x0A, 0, 0, 0, 0, 0, 0, 0, 0xF8, 0xFF, 0x7F}));

  root_.Write("/keys", "mode on\n000102030405060708090a0b0c0d0e0f10111213\n");
  const ProgramResult finder = Bthal({"finder", root_.path() + "/keys"});
  EXPECT_EQ(finder.status, 0) << finder.error;
  EXPECT_EQ(finder.out, "1 key given\npowered-off mode on\n");
  const size_t offs = Count(*board_, sim::WireEvent::kPowerOff);
  service_->Signal(SIGTERM);
  EXPECT_TRUE(Receives(*board_, 1, {0x62, 0xFD, 23,   0x01, 0,    1,    0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06,
                                    0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13}));
  EXPECT_TRUE(Receives(*board_, 1, {0x62, 0xFD, 9, 0x02, 0x40, 0x06, 0x0A, 0x00, 0x04, 0x00, 0x00, 0x50}));
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(Count(*board_, sim::WireEvent::kPowerOff), offs) << "the controller stays on, with its keys";
}

TEST_F(OnBoard, TheSupervisorBringsTheServiceBack) {
  StartBoard();
  Companion supervisor;
  ASSERT_TRUE(supervisor.Start({"supervise"}));
  ASSERT_TRUE(supervisor.Says("BTQNL controller is ready"));
  const std::string started = *std::ranges::find_if(
      supervisor.lines, [](const std::string& line) { return line.find("supervise: started ") != std::string::npos; });
  kill(std::stoi(started.substr(started.rfind(' '))), SIGKILL);
  // Whoever waits is served by its successor, which does not wait for anything.
  EXPECT_EQ(Bthal({"hci", "read_bd_addr"}).status, 0);
  EXPECT_TRUE(supervisor.Says("was killed by SIGKILL"));
  EXPECT_TRUE(supervisor.Says("restarting at once"));
  // The service's own end after SIGTERM is a SIGKILL to itself, the controller off.
  kill(supervisor.talk.pid(), SIGTERM);
  EXPECT_EQ(supervisor.End(), 0);
  EXPECT_THAT(supervisor.lines, Contains(HasSubstr("supervise: ending pid ")));
  EXPECT_TRUE(GoesOff(*board_));
}

}  // namespace
}  // namespace bthal
