// The project's own files, as tests look at them.
#pragma once

#include <regex>

#include "support/test.h"

namespace bthal::test {

// The files of one of these extensions below a folder, sorted.
inline std::vector<std::filesystem::path> FilesBelow(const std::filesystem::path& folder,
                                                     const std::set<std::string>& extensions) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file() && extensions.contains(entry.path().extension())) files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

// Every match's first group, in order; ^ and $ are at each line's ends.
inline std::vector<std::string> Matches(const std::string& text, const std::string& pattern) {
  const std::regex regex(pattern, std::regex::multiline);
  std::vector<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
    found.push_back((*match)[1]);
  }
  return found;
}

}  // namespace bthal::test
