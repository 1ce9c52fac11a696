// A machine has several users: what bthal says to one of what is another's, and what it leaves alone.
#include "support/board_session.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

constexpr char kNobody[] = "65534";

class OtherUserTest : public BoardSessionTest {
 protected:
  // Where the test is no root's, it is for itself that the folder is closed.
  void CloseRunFolder() const {
    fs::permissions(root_.path(), fs::perms{0755});
    if (geteuid() != 0) fs::permissions(root_.path() + "/run/bthal", fs::perms::none);
  }

  static ProgramResult AsAnother(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = BthalCommand(arguments);
    if (geteuid() == 0) command.insert(command.begin(), {"setpriv", "--reuid", kNobody, "--clear-groups"});
    return RunProgram(command);
  }
};

// That nothing can be seen must not be told as that there is nothing, nor be waited for.
TEST_F(OtherUserTest, IsToldWhoseServiceHeCannotSee) {
  ASSERT_TRUE(SetProperty("a", "1") && SetProperty("persist.mine", "2"));
  root_.Write("/keys", "mode on\n");
  ASSERT_NO_FATAL_FAILURE(StartBoard(SmallBoard()));
  StartService("error");
  ASSERT_TRUE(service_->WaitUntilPublished());
  CloseRunFolder();
  const std::string told = "bthal: cannot look into " + root_.path() + "/run/bthal: Permission denied" +
                           (geteuid() == 0 ? "; it is root's: run this as that user, or as root\n" : "\n");
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"services"},
                                             {"dump"},
                                             {"hci", "--wait-service", "1000", "reset"},
                                             {"afh", "--avoid", "3"},
                                             {"finder", root_.path() + "/keys"},
                                             {"supervise", "--max-restarts", "0", "--", "/bin/true"},
                                             {"prop", "get", "a"},
                                             {"prop", "get", "a", "none"}}) {
    const ProgramResult result = AsAnother(command);
    EXPECT_EQ(result.status, 1) << ::testing::PrintToString(command);
    EXPECT_EQ(result.error, told) << ::testing::PrintToString(command);
    EXPECT_EQ(result.out, "") << ::testing::PrintToString(command);
  }
  const ProgramResult bridge = AsAnother({"bridge", "unix", root_.path() + "/hci"});
  EXPECT_EQ(bridge.error, told);
  const ProgramResult list = AsAnother({"prop", "list"});
  EXPECT_THAT(list.out, AllOf(StartsWith("[persist."), HasSubstr("[persist.mine]: [2]\n")));
  EXPECT_EQ(list.error, told);
  EXPECT_EQ(AsAnother({"prop", "list", "persist."}).error, "");
  EXPECT_EQ(AsAnother({"prop", "get", "persist.mine"}).out, "2\n");
  EXPECT_EQ(AsAnother({"hci", "list", "read_bd_addr"}).status, 0) << "what needs no service";
  fs::permissions(root_.path() + "/run/bthal", fs::perms::owner_all);
}

}  // namespace
}  // namespace bthal
