#include <host/property_store.h>

#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using ::android::base::GetBoolProperty;
using ::android::base::GetIntProperty;
using ::android::base::GetUintProperty;

using PropertiesTest = LoggedTest;

TEST_F(PropertiesTest, WhatOneProcessSetsAnotherReads) {
  EXPECT_EQ(GetProperty("bluetooth.uart.fallback", "none"), "none");
  ChildProcess writer([] {
    const bool set = SetProperty("bluetooth.uart.fallback", "true") && SetProperty("persist.bluetooth.size", "1234") &&
                     SetProperty("persist.bluetooth.empty", "");
    return set ? 0 : 1;
  });
  ASSERT_EQ(writer.Wait(), 0);
  EXPECT_EQ(GetProperty("bluetooth.uart.fallback", ""), "true");
  // The library's own functions read ours.
  EXPECT_TRUE(GetBoolProperty("bluetooth.uart.fallback", false));
  EXPECT_EQ(GetIntProperty("persist.bluetooth.size", 0), 1234);
  EXPECT_EQ(GetUintProperty<size_t>("persist.bluetooth.size", 0), 1234u);
  EXPECT_EQ(GetProperty("persist.bluetooth.empty", "default"), "default");
  EXPECT_TRUE(SetProperty("bluetooth.uart.fallback", "false"));
  EXPECT_FALSE(GetBoolProperty("bluetooth.uart.fallback", true));
}

TEST_F(PropertiesTest, OnlyThePersistentOutliveAReboot) {
  EXPECT_TRUE(host::WipeVolatileProperties());  // nothing there yet
  ASSERT_TRUE(SetProperty("persist.a", "1") && SetProperty("b", "2") && SetProperty("ro.c", "3"));
  EXPECT_THAT(host::ListProperties(), ElementsAre(Pair("b", "2"), Pair("persist.a", "1"), Pair("ro.c", "3")));
  EXPECT_EQ(std::filesystem::status(root_.path() + "/run/bthal").permissions(), std::filesystem::perms::owner_all);
  EXPECT_TRUE(host::WipeVolatileProperties());
  EXPECT_THAT(host::ListProperties(), ElementsAre(Pair("persist.a", "1")));
  EXPECT_TRUE(SetProperty("ro.c", "4"));
  // Nothing half-written is left in the folders.
  for (const char* folder : {"/run/bthal/properties", "/var/lib/bthal/properties"}) {
    for (const auto& entry : std::filesystem::directory_iterator(root_.path() + folder)) {
      EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();
    }
  }
}

TEST_F(PropertiesTest, ThePlatformsRulesHold) {
  EXPECT_TRUE(SetProperty("ro.build.type", "eng"));
  EXPECT_FALSE(SetProperty("ro.build.type", "user"));
  EXPECT_TRUE(log_.Has("SetProperty: ro.build.type is read-only and was set before"));
  EXPECT_EQ(GetProperty("ro.build.type", ""), "eng");
  EXPECT_TRUE(SetProperty("a", std::string(91, 'x')));
  EXPECT_FALSE(SetProperty("a", std::string(92, 'y')));
  EXPECT_TRUE(log_.Has("SetProperty: the value of a has 92 bytes, 91 are allowed"));
  EXPECT_EQ(GetProperty("a", ""), std::string(91, 'x'));
  EXPECT_TRUE(SetProperty("ro.long", std::string(500, 'z')));
  EXPECT_EQ(GetProperty("ro.long", "").size(), 500u);
  for (const std::string& name :
       {std::string(), std::string("../escape"), std::string("a/b"), std::string(".a"), std::string("a."),
        std::string("a..b"), std::string("a b"), std::string("a\0b", 3), std::string(300, 'n')}) {
    EXPECT_FALSE(SetProperty(name, "1")) << name;
    EXPECT_EQ(GetProperty(name, "default"), "default") << name;
  }
  EXPECT_FALSE(std::filesystem::exists(root_.path() + "/run/bthal/escape"));
}

TEST_F(PropertiesTest, WhatIsNoFileOfAPropertysSizeIsNone) {
  const std::string folder = "/var/lib/bthal/properties/";
  const std::string fifo = root_.Below(folder + "persist.fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  auto value = std::async(std::launch::async, [] { return GetProperty("persist.fifo", "default"); });
  EXPECT_EQ(value.wait_for(seconds(20)), std::future_status::ready);
  unique_fd(open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)).reset();
  EXPECT_EQ(value.get(), "default");

  root_.Write(folder + "persist.large", std::string(size_t{2} << 20, 'x'));
  std::filesystem::create_directory(root_.Below(folder + "persist.folder"));
  EXPECT_EQ(GetProperty("persist.large", "").size(), 0u);
  EXPECT_EQ(GetProperty("persist.folder", "default"), "default");
  EXPECT_THAT(host::ListProperties(), IsEmpty());
}

TEST_F(PropertiesTest, AFailedWriteIsSaidAndChangesNothing) {
  root_.Write("/var/lib/bthal", "in the way");
  EXPECT_FALSE(SetProperty("persist.a", "1"));
  EXPECT_TRUE(log_.Has("SetProperty: cannot write /var/lib/bthal/properties/persist.a: Not a directory (20)"));
  EXPECT_TRUE(SetProperty("a", "1"));
  std::filesystem::create_directories(root_.path() + "/run/bthal/properties/b");
  EXPECT_FALSE(SetProperty("b", "1"));
  EXPECT_EQ(CountEntries(root_.path() + "/run/bthal/properties"), 2u) << "a half-made file is left";
}

TEST_F(PropertiesTest, AReaderSeesOneWholeValueOrAnother) {
  const std::string values[] = {std::string(10, 'a'), std::string(90, 'b')};
  ASSERT_TRUE(SetProperty("p", values[0]));
  std::vector<std::thread> writers;
  for (int t = 0; t < 2; ++t) {
    writers.emplace_back([&, t] {
      for (int i = 0; i < 100; ++i) EXPECT_TRUE(SetProperty("p", values[(i + t) % 2]));
    });
  }
  for (int i = 0; i < 500; ++i) {
    const std::string value = GetProperty("p", "none");
    ASSERT_TRUE(value == values[0] || value == values[1]) << value;
  }
  for (auto& writer : writers) writer.join();
}

TEST_F(PropertiesTest, OfSeveralWhoSetAReadOnlyOneWins) {
  for (int round = 0; round < 50; ++round) {
    const std::string name = "ro.once." + std::to_string(round);
    std::vector<std::string> winners;
    bool won[4] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back([&, t] { won[t] = SetProperty(name, std::to_string(t)); });
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < 4; ++t) {
      if (won[t]) winners.push_back(std::to_string(t));
    }
    EXPECT_THAT(winners, ElementsAre(GetProperty(name, "none")));
  }
}

}  // namespace
}  // namespace bthal::test
