// What a service said before it died.
#pragma once

#include <deque>
#include <string>
#include <vector>

namespace bthal::tool {

// 'V' to 'F', of a log line in the format of the service or of liblog's own; 0 for any other line.
char LogSeverity(const std::string& line);

// Looks at log lines as they come.
class LastWords {
 public:
  void Look(const std::string& line);
  void Forget();

  // The last fatal line; without one, the last error lines, three at most, oldest first.
  std::vector<std::string> Lines() const;

 private:
  std::string fatal_;
  std::deque<std::string> errors_;
};

}  // namespace bthal::tool
