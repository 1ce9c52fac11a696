#include "bthal/cli/help_text.h"

#include <android-base/strings.h>

#include <vector>

#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

constexpr char kUsage[] = "Usage:";

// Where the words of a line begin that has names before them; where it begins itself, if those are all it has.
size_t ColumnOfWords(const std::string& line) {
  const size_t begin = line.find_first_not_of(' ');
  if (begin == std::string::npos || begin == 0) return 0;
  const size_t gap = line.find("  ", begin);
  const size_t words = line.find_first_not_of(' ', gap);
  if (words != std::string::npos) return words;
  // An entry is gone on with further in, what is said of it where it stands.
  constexpr size_t kEntry = 2;
  return begin <= kEntry ? begin + kEntry : begin;
}

bool GoesOn(const std::string& before, const std::string& line) {
  return !before.empty() && before.front() != ' ' && !before.ends_with(':') && !before.starts_with(kUsage) &&
         !line.empty() && line.front() != ' ' && !line.starts_with(kUsage);
}

}  // namespace

std::string HelpOnTerminal(std::string_view help) {
  if (RoomBehind(0) == 0) return std::string(help);
  std::vector<std::string> lines;
  for (const std::string& line : ::android::base::Split(std::string(help), "\n")) {
    if (!lines.empty() && GoesOn(lines.back(), line)) {
      lines.back() += " " + line;
    } else {
      lines.push_back(line);
    }
  }
  for (std::string& line : lines) line = Folded(line, ColumnOfWords(line));
  return ::android::base::Join(lines, '\n');
}

}  // namespace bthal::tool
