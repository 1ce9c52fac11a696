// Every setting and every property that the service looks at: how its value is written, and what it does.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

enum class ValueKind { kSwitch, kNumber, kPath, kWord, kText };

struct KnownName {
  std::string_view name;
  ValueKind kind;
  std::string_view values;    // a switch's and a word's, with '|' between them; else in words
  int64_t least, most;        // a number's
  std::string_view fallback;  // what holds where it is not set
  std::string_view reader;    // the room that acts on it
  std::string_view effect;
};

std::span<const KnownName> KnownSettings();
std::span<const KnownName> KnownProperties();

// All of them, with what they do, two lines each.
std::string Explained(std::span<const KnownName> names);

// What the two settings files hold that the service would leave out or take for something else, one line each: "PATH,
// line 3: ...".
std::vector<std::string> SettingsProblems();

}  // namespace bthal::tool
