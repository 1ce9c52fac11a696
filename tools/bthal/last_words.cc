#include "bthal/last_words.h"

#include <regex>

namespace bthal::tool {
namespace {

constexpr size_t kErrorLines = 3;

}  // namespace

char LogSeverity(const std::string& line) {
  // "11-21 09:02:20.881 pid tid S tag: text", or "tag S 11-21 09:02:20 pid tid file:line] text".
  static const auto& kTimeFirst =
      *new std::regex(R"(^\d\d-\d\d \d\d:\d\d:\d\d\.\d+ +\d+ +\d+ ([VDIWEF]) )", std::regex::optimize);
  static const auto& kTagFirst = *new std::regex(R"(^\S+ ([VDIWEF]) \d\d-\d\d \d\d:\d\d:\d\d )", std::regex::optimize);
  std::smatch match;
  if (std::regex_search(line, match, kTimeFirst) || std::regex_search(line, match, kTagFirst)) return match.str(1)[0];
  return 0;
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
