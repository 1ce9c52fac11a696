// A line cut into its words.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace bthal::tool {

// The pieces of `line` between runs of white space.
inline std::vector<std::string> SplitWords(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

}  // namespace bthal::tool
