// A line cut into its words.
#pragma once

#include <android-base/strings.h>

#include <string>
#include <vector>

namespace bthal::tool {

// The pieces of `line` between runs of white space.
inline std::vector<std::string> SplitWords(const std::string& line) {
  std::vector<std::string> words = ::android::base::Split(line, " \t\r\n\v\f");
  std::erase(words, "");
  return words;
}

}  // namespace bthal::tool
