// One line of a configuration file.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace android::hardware::bluetooth::conf {

struct ConfigPair {
  std::string name;
  std::string value;
};

// The name and the value of a line; nothing for comments, empty lines and, with a warning, names without a value:
//   name, then any of blank, tab and '=', then the value up to the next tab, '=' or line end, its outer blanks removed
std::optional<ConfigPair> ParseLine(std::string_view line);

}  // namespace android::hardware::bluetooth::conf
