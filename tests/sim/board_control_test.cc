// The board's control socket: what it answers, and whom it does not wait for.
#include "support/board_host.h"
#include "support/run_program.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal::sim {
namespace {

using namespace ::bthal::test;

class BoardControlTest : public BoardTest {
 protected:
  // Who connects, and does with it what no program of ours does.
  unique_fd Connect() const {
    return ConnectedTo(root_.path() + "/run/bthal/board-control", SOCK_STREAM | SOCK_NONBLOCK);
  }

  // What has come when the board has nothing more to say, or has hung up.
  static std::string Heard(const unique_fd& peer, const std::string& until) {
    std::string text;
    WaitFor([&] {
      char piece[4096];
      const ssize_t count = recv(peer.get(), piece, sizeof(piece), 0);
      if (count > 0) text.append(piece, static_cast<size_t>(count));
      return count == 0 || (!until.empty() && text.ends_with(until));
    });
    return text;
  }

  ProgramResult Ask(std::vector<std::string> words) const {
    words.insert(words.begin(), {"board", "ctl"});
    return Bthal(words);
  }
};

TEST_F(BoardControlTest, FaultsAreAddedListedAndForgotten) {
  Play();
  EXPECT_EQ(root_.ModeOf("/run/bthal/board-control") & 0777, 0600U);
  EXPECT_EQ(Ask({"fault", "wrong-status", "opcode=0x1009", "status=0x1F"}).status, 0);
  EXPECT_EQ(Ask({"fault", "no-answer,opcode=reset,count=always,after=2"}).status, 0);
  EXPECT_EQ(Ask({"list"}).out,
            "wrong-status opcode=0x1009 status=0x1F  strikes once\n"
            "no-answer,opcode=reset,count=always,after=2  strikes always, after 2 more\n");
  EXPECT_EQ(host_.Command(kReadBdAddr), Complete(kReadBdAddr, {0x1F}));
  EXPECT_EQ(Ask({"list"}).out, "no-answer,opcode=reset,count=always,after=2  strikes always, after 2 more\n");
  EXPECT_EQ(Ask({"clear"}).status, 0);
  EXPECT_EQ(Ask({"list"}).out, "");
  EXPECT_THAT(Ask({"state"}).out,
              AllOf(HasSubstr("controller  on\n"), HasSubstr("115200 bit/s\n"), HasSubstr("faults      0 in force\n")));
  const ProgramResult refused = Ask({"fault", "rain"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, StartsWith("bthal: no fault is called 'rain'"));
  EXPECT_EQ(Ask({"fault", "hardware-error,now"}).status, 0);
  EXPECT_EQ(host_.Read(), (Packet{0x04, 0x10, 0x01, 0x01}));
}

TEST_F(BoardControlTest, NobodyHoldsTheBoardUp) {
  Play();
  const unique_fd stalls = Connect();
  ASSERT_EQ(send(stalls.get(), "sta", 3, 0), 3);
  const unique_fd babbles = Connect();
  const std::string endless(4096, 'x');
  ASSERT_GT(send(babbles.get(), endless.data(), endless.size(), MSG_NOSIGNAL), 0);
  EXPECT_EQ(Heard(babbles, ""), "") << "it is hung up on";
  const unique_fd garbage = Connect();
  const std::string bytes("\x01\0\xFF\n", 4);
  ASSERT_EQ(send(garbage.get(), bytes.data(), bytes.size(), 0), 4);
  EXPECT_EQ(Heard(garbage, "\n"), "error: a question is a line of text\n");
  // Who asks and asks and never reads is not read any more.
  const unique_fd deaf = Connect();
  const std::string questions = "state\nstate\nstate\nstate\n";
  EXPECT_TRUE(WaitFor([&] {
    return send(deaf.get(), questions.data(), questions.size(), MSG_NOSIGNAL) < 0 && host_.Command(kReset).size() == 7;
  }));
  EXPECT_EQ(host_.Command(kReset), Complete(kReset, {0x00}));
  ASSERT_EQ(send(stalls.get(), "te\n", 3, 0), 3);
  EXPECT_THAT(Heard(stalls, "ok\n"), HasSubstr("controller  on\n"));
  // More peers than there is room for: the newest are served.
  std::vector<unique_fd> idle;
  for (int i = 0; i < 40; ++i) {
    idle.push_back(Connect());
    ASSERT_EQ(send(idle.back().get(), "list\n", 5, 0), 5);
    EXPECT_EQ(Heard(idle.back(), "ok\n"), "ok\n") << i;
  }
  EXPECT_EQ(Ask({"list"}).status, 0);
  board_->Stop();
  EXPECT_FALSE(std::filesystem::exists(root_.path() + "/run/bthal/board-control"));
  EXPECT_THAT(Ask({"list"}).error, HasSubstr("no virtual board can be asked"));
}

}  // namespace
}  // namespace bthal::sim
