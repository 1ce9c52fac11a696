// What the snoop log does with its place in the file system.
#include <pwd.h>

#include <string_view>

#include "support/test.h"
#include "vnd_snoop_logger.h"

namespace {

bool g_user_exists = false;

}  // namespace

// Whether the device's user exists is the test's to say. No other user is asked for.
extern "C" int getpwnam_r(const char* name, passwd* entry, char* /*buffer*/, size_t /*size*/, passwd** found) {
  *found = g_user_exists && std::string_view(name) == "bluetooth" ? entry : nullptr;
  return 0;
}

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

class SnoopFolderTest : public ::testing::Test {
 protected:
  SnoopFolderTest() {
    std::filesystem::create_directories(folder_);
    SetProperty("persist.bluetooth.btsnooplogmode", "full");
    SetProperty("persist.bluetooth.vendor.btsnoop", "true");
  }
  ~SnoopFolderTest() override { logger_.Stop(); }

  TempRoot root_;
  LogCapture log_;
  const std::string folder_ = root_.path() + "/data/vendor/bluetooth";
  VndSnoopLogger& logger_ = VndSnoopLogger::Get();
};

TEST_F(SnoopFolderTest, IsKeptFromOthersWhereTheDevicesUserExists) {
  const auto mode = [this] { return static_cast<unsigned>(std::filesystem::status(folder_).permissions()); };
  ASSERT_EQ(chmod(folder_.c_str(), 0777), 0);
  logger_.Start();
  EXPECT_EQ(mode(), 0777u);
  g_user_exists = true;
  logger_.Start();
  EXPECT_EQ(mode(), 0750u);
  std::filesystem::remove_all(folder_);
  logger_.Start();  // without it there is nothing to keep
  EXPECT_FALSE(log_.Has("from other users"));
}

// A FIFO in the log's place, with nobody at its other end, is a log that cannot be opened, and none to be removed.
TEST_F(SnoopFolderTest, DoesNotWaitForALogThatIsNoFile) {
  ASSERT_EQ(mkfifo((folder_ + "/btsnoop_hci_vnd.log").c_str(), 0600), 0);
  logger_.Start();
  EXPECT_TRUE(log_.Has(
      "Unable to open snoop log at \"/data/vendor/bluetooth/btsnoop_hci_vnd.log\", error: \"No such device or "));
  logger_.Capture({1, 2, 3}, VndSnoopLogger::kToController, VndSnoopLogger::kCommand, false);
  SetProperty("persist.bluetooth.vendor.btsnoop", "false");
  logger_.Start();
  EXPECT_TRUE(log_.Has("Main log file does not exist at"));
}

}  // namespace
}  // namespace android::hardware::bluetooth
