// The house as it stands: which room includes which, and that no include runs back up. The build refuses what a room
// does not see; this shows the whole, and looks where a build cannot: at relative paths, at the other folders, at their
// size.
#include <iostream>

#include "house/source_tree.h"
#include "support/test.h"

namespace {

using namespace ::bthal::test;

// room -> rooms it includes -> the first file that does
using Arrows = std::map<std::string, std::map<std::string, std::string>>;

const fs::path kRepository = SOURCE_TREE;

std::vector<fs::path> SourcesBelow(const fs::path& folder) {
  return FilesBelow(kRepository / folder, {".cc", ".h", ".inc"});
}

std::vector<std::string> QuotedIncludes(const fs::path& file) {
  return Matches(ContentOf(file), "^#include \"([^\"]+)\"");
}

// "conf/conf.h" belongs to room conf, "bluetooth_bqr.h" to bluetooth_bqr; h4/hw_control is a room of its own.
std::string RoomOf(const fs::path& path) {
  if (path.generic_string().starts_with("h4/hw_control/")) return "hw_control";
  const fs::path first = *path.begin();
  return first == path ? path.stem() : first;
}

Arrows ArrowsBelow(const fs::path& folder, const std::string& prefix = "") {
  Arrows arrows;
  for (const fs::path& file : SourcesBelow(folder)) {
    const fs::path own = file.lexically_relative(kRepository / folder);
    for (const std::string& include : QuotedIncludes(file)) {
      if (!include.starts_with(prefix)) continue;
      const std::string to = RoomOf(include.substr(prefix.size()));
      if (to != RoomOf(own))
        arrows[RoomOf(own)].emplace(to, own);
      else
        arrows[RoomOf(own)];
    }
  }
  return arrows;
}

// The rooms of src/ in the order in which its build lists them.
std::vector<std::string> RoomsInOrder() {
  std::vector<std::string> rooms = Matches(ContentOf(kRepository / "src/CMakeLists.txt"), "^room\\((\\w+)");
  rooms.emplace_back("service");
  return rooms;
}

// Prints the rooms with what they include, and fails on an arrow to a room that does not stand before.
void ExpectOneDirection(const std::vector<std::string>& order, const Arrows& arrows) {
  std::set<std::string> below;
  for (const std::string& room : order) {
    std::cout << room << (arrows.contains(room) && !arrows.at(room).empty() ? " ->" : "");
    if (arrows.contains(room)) {
      for (const auto& [to, file] : arrows.at(room)) {
        std::cout << ' ' << to;
        EXPECT_TRUE(below.contains(to)) << file << " includes a header of " << to << ", which does not stand below "
                                        << room;
      }
    }
    std::cout << '\n';
    below.insert(room);
  }
  for (const auto& [room, to] : arrows) EXPECT_TRUE(below.contains(room)) << room << " is no room";
}

TEST(RoomsTest, TheServiceIncludesDownwardsOnly) {
  const Arrows arrows = ArrowsBelow("src");
  ASSERT_GE(arrows.size(), 14u);
  ExpectOneDirection(RoomsInOrder(), arrows);
}

TEST(RoomsTest, TheToolIncludesDownwardsOnly) {
  const Arrows arrows = ArrowsBelow("tools/bthal", "bthal/");
  ASSERT_GE(arrows.size(), 5u);
  ExpectOneDirection({"hci", "show", "cli", "run", "check", "demo", "bridge", "shell", "cmd", "main"}, arrows);
}

// What a quoted include of each folder may begin with; the rest is the folder's own business.
TEST(RoomsTest, FoldersKeepToThemselves) {
  const std::map<std::string, std::vector<std::string>> forbidden = {
      {"src", {"../", "host/", "sim/", "bthal/", "tests/"}},
      {"host", {"../", "os/", "hci/", "conf/", "debug_central/", "h4/", "shim/", "aidl/bluetooth", "sim/", "bthal/"}},
      {"sim", {"../", "os/", "hci/", "conf/", "h4/", "shim/", "android", "host/", "bthal/"}},
      {"tools", {"../", "hci/", "h4/", "shim/", "aidl/bluetooth", "debug_central/", "btqnl_protocol/"}}};
  for (const auto& [folder, prefixes] : forbidden) {
    for (const fs::path& file : SourcesBelow(folder)) {
      for (const std::string& include : QuotedIncludes(file)) {
        for (const std::string& prefix : prefixes) EXPECT_FALSE(include.starts_with(prefix)) << file << ": " << include;
      }
    }
  }
}

TEST(RoomsTest, NoFolderIsAHall) {
  size_t top = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(kRepository / "src")) ++top;
  EXPECT_LE(top, 20u) << "entries on the top floor of src/";
  for (const char* part : {"src", "host", "sim", "tools", "tests", "fuzz", "bench"}) {
    std::map<fs::path, int> files;
    for (const fs::path& file : SourcesBelow(part)) ++files[file.parent_path()];
    for (const auto& [folder, count] : files) EXPECT_LE(count, 30) << folder;
  }
}

}  // namespace
