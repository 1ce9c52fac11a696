// Lines of a pipe, or of a terminal that nobody edits.
#pragma once

#include <string>

namespace bthal::tool {

// Reads lines without holding any back, so that a Ctrl-C is noticed between them.
class LineSource {
 public:
  explicit LineSource(int fd) : fd_(fd) {}

  // False at the end of the input, or when the user interrupts.
  bool Next(std::string* line);

 private:
  const int fd_;
  std::string buffer_;
};

}  // namespace bthal::tool
