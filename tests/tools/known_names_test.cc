// The tables of settings and properties, held against the service's sources; and what the tool makes of a settings
// file.
#include "bthal/show/known_names.h"

#include "conf/conf.h"
#include "house/source_tree.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

using ::android::hardware::bluetooth::conf::Config;

std::set<std::string> Names(std::span<const tool::KnownName> known) {
  std::set<std::string> names;
  for (const tool::KnownName& name : known) names.emplace(name.name);
  EXPECT_EQ(names.size(), known.size()) << "one is there twice";
  return names;
}

TEST(KnownNamesTest, AreAllThatTheServiceLooksAtAndNoOther) {
  std::set<std::string> properties;
  for (const fs::path& file : FilesBelow(fs::path(SOURCE_TREE) / "src", {".cc", ".h", ".inc", ".fbs"})) {
    for (const std::string& name :
         Matches(ContentOf(file), "\"((?:persist|ro|sys|vendor|bluetooth)\\.[a-z0-9_.]+)\"")) {
      properties.insert(name);
    }
  }
  EXPECT_EQ(Names(tool::KnownProperties()), properties);

  const TempRoot root;
  std::set<std::string> settings;
  for (const auto& setting : Config::Preview().Settings()) {
    settings.insert(setting.key);
    const auto known = std::ranges::find(tool::KnownSettings(), setting.key, &tool::KnownName::name);
    if (known != tool::KnownSettings().end()) {
      EXPECT_EQ(setting.value, known->fallback) << setting.key;
    }
  }
  EXPECT_EQ(Names(tool::KnownSettings()), settings);
}

TEST(KnownNamesTest, ASettingsFileIsLookedThrough) {
  const TempRoot root;
  root.Write("/vendor/etc/bluetooth/bt_vendor.conf",
             "# UartPrt = none\n\nUartPort = /dev/ttyS1\nUserialType = 2\nFastDownloadDisable = 1\n");
  EXPECT_EQ(Bthal({"conf"}).status, 0);
  root.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf",
             "UartPrt = /dev/ttyS1\nUserialType = 3\nBigHammerBtRegOnDelay = 1s\nAccelBtDisable = yes\n"
             "SarBackOffHighResolution = 1\nUartPort\nUartPort = ttyS1\nColour = red\n");
  const ProgramResult result = Bthal({"conf"});
  EXPECT_EQ(result.status, 1);
  const std::string line = "bthal: /vendor/etc/bluetooth/bt_vendor_overlay.conf, line ";
  EXPECT_EQ(result.error, line + "1: there is no setting 'UartPrt'; did you mean 'UartPort'?\n" + line +
                              "2: UserialType cannot be '3'; it takes 0 to 2 (0: HCI user channel, 1: tty, 2: sensor "
                              "hub)\n" +
                              line + "3: BigHammerBtRegOnDelay cannot be '1s'; it takes 0 to 60000 (milliseconds)\n" +
                              line + "4: AccelBtDisable cannot be 'yes'; it takes true, false, 1, 0\n" + line +
                              "5: SarBackOffHighResolution cannot be '1'; it takes true, false\n" + line +
                              "6: 'UartPort' has no value; write name = value\n" + line +
                              "7: UartPort cannot be 'ttyS1'; it takes a path below /dev\n" + line +
                              "8: there is no setting 'Colour'; bthal conf --explain shows all\n");
  EXPECT_THAT(Bthal({"check"}).out,
              ContainsRegex("\nwrong +vendor settings +[^\n]*line 1: there is no setting 'UartPrt'; "
                            "did you mean 'UartPort'\\?\n[^\n]*correct it, and 7 more: bthal conf"));
}

TEST(KnownNamesTest, AreExplained) {
  const TempRoot root;
  EXPECT_EQ(Bthal({"prop", "list", "--known", "ro.build"}).out,
            "  ro.build.type = user, userdebug, eng\n"
            "      userdebug, eng: the packet log needs no log mode, the quality mask may be set (conf)\n");
  EXPECT_EQ(Bthal({"conf", "--explain"}).out, tool::Explained(tool::KnownSettings()));
  EXPECT_THAT(Bthal({"conf", "--help"}).out, HasSubstr(tool::Explained(tool::KnownSettings())));
  EXPECT_THAT(Bthal({"prop", "--help"}).out, HasSubstr(tool::Explained(tool::KnownProperties())));
}

}  // namespace
}  // namespace bthal
