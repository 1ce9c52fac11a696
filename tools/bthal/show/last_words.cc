#include "bthal/show/last_words.h"

#include <cstdio>
#include <cstring>

namespace bthal::tool {
namespace {

constexpr size_t kErrorLines = 3;

}  // namespace

char LogSeverity(const std::string& line) {
  // "11-21 09:02:20.881 pid tid S tag: text"
  char severity = 0;
  if (sscanf(line.c_str(), "%*2d-%*2d %*2d:%*2d:%*2d.%*3d %*d %*d %c ", &severity) != 1) {
    // "tag S 11-21 09:02:20 pid tid file:line] text"
    int seconds = 0;
    if (sscanf(line.c_str(), "%*s %c %*2d-%*2d %*2d:%*2d:%2d ", &severity, &seconds) != 2) return 0;
  }
  return strchr("VDIWEF", severity) != nullptr ? severity : '\0';
}

void LastWords::Look(const std::string& line) {
  const char severity = LogSeverity(line);
  if (severity == 'F') fatal_ = line;
  if (severity != 'E') return;
  errors_.push_back(line);
  if (errors_.size() > kErrorLines) errors_.pop_front();
}

void LastWords::Forget() {
  fatal_.clear();
  errors_.clear();
}

std::vector<std::string> LastWords::Lines() const {
  if (!fatal_.empty()) return {fatal_};
  return {errors_.begin(), errors_.end()};
}

}  // namespace bthal::tool
