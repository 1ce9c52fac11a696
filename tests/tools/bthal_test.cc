// The subcommands that need no service.
#include "bthal/run/extension_clients.h"
#include "bthal/run/process.h"
#include "bthal/run/thread_client.h"
#include "bthal/show/terminal.h"
#include "support/run_program.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

TEST(BthalTest, PropertiesAreSetReadAndListed) {
  const TempRoot root;
  EXPECT_EQ(Bthal({"prop", "set", "persist.bluetooth.two", ""}).status, 0);
  EXPECT_EQ(Bthal({"prop", "set", "ro.build.type", "userdebug"}).status, 0);
  EXPECT_EQ(Bthal({"prop", "get", "persist.bluetooth.two", "unused"}).out, "unused\n");
  EXPECT_EQ(Bthal({"prop", "get", "no.such.thing", "instead"}).out, "instead\n");
  EXPECT_EQ(Bthal({"prop", "list", "ro."}).out, "[ro.build.type]: [userdebug]\n");
  const ProgramResult again = Bthal({"prop", "set", "ro.build.type", "user"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.error, HasSubstr("ro.build.type is read-only and already set, to 'userdebug'"));
  EXPECT_EQ(Bthal({"prop", "get", "ro.build.type"}).out, "userdebug\n");
}

TEST(BthalTest, ServicesAreAbsentWhereNobodyPublishes) {
  const TempRoot root;
  const ProgramResult result = Bthal({"services"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(std::ranges::count(result.out, '\n'), 7);
  EXPECT_THAT(result.out, HasSubstr("absent           -  android.hardware.bluetooth.IBluetoothHci/default\n"));
}

TEST(BthalTest, OutputToAFileHasNoColours) {
  const TempRoot root;
  setenv("TERM", "xterm-256color", 1);
  EXPECT_EQ(Bthal({"check"}).out.find('\033'), std::string::npos);
  EXPECT_EQ(tool::WithoutColours("\033[31mred\033[0m and plain \033["), "red and plain ");
}

// A Thread service with a socket whose path is too long for an address.
TEST(BthalTest, ThreadFramesGoAndComeThroughALongPath) {
  const TempRoot root;
  const std::string folder = root.path() + "/" + std::string(100, 'x');
  std::filesystem::create_directories(folder + "/data/vendor/bluetooth");
  setenv("BTHAL_ROOT", folder.c_str(), 1);
  std::filesystem::current_path(folder + "/data/vendor/bluetooth");
  const unique_fd listener = ListenAt("thread_dispatcher_socket", SOCK_SEQPACKET);
  std::vector<uint8_t> heard(64);
  std::thread service([&] {
    const unique_fd client(accept(listener.get(), nullptr, nullptr));
    heard.resize(static_cast<size_t>(std::max<ssize_t>(recv(client.get(), heard.data(), heard.size(), 0), 0)));
    send(client.get(), "\x01\x02\x03", 3, 0);
  });
  const ProgramResult result = Bthal({"thread", "aa bb", "--count", "1", "--wait", "30"});
  service.join();
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_THAT(heard, ElementsAre(0xAA, 0xBB));
  EXPECT_EQ(result.out, "<     2  AA BB\n>     3  01 02 03\n");
}

TEST(ChannelMapTest, BitsStandForChannels) {
  std::string error;
  EXPECT_THAT(tool::MapWithout("0-8,78", &error),
              ::testing::Optional(ElementsAre(0x00, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x3F)));
  for (const char* bad : {"8-3", "a", "1-", "-", "0-79"}) EXPECT_FALSE(tool::MapWithout(bad, &error)) << bad;
}

TEST(FinderFileTest, HoldsKeysAndAMode) {
  std::string error;
  const std::string key = "000102030405060708090a0b0c0d0e0f10111213";
  const auto file = tool::ParseFinderFile("# keys\n\n" + key + "  # first\nmode off\n" + key + "\nmode on\n", &error);
  ASSERT_TRUE(file) << error;
  EXPECT_EQ(file->keys.size(), 40u);
  EXPECT_EQ(file->keys[21], 0x01);
  EXPECT_EQ(file->enable, true);
  EXPECT_FALSE(tool::ParseFinderFile(key + "\nmode maybe\n", &error));
  EXPECT_THAT(error, StartsWith("line 2 "));
}

}  // namespace
}  // namespace bthal
