// Lines of a pipe, or of a terminal that nobody edits.
#pragma once

#include <string>

namespace bthal::tool {

// Reads lines without holding any back, so that a Ctrl-C is noticed between them.
class LineSource {
 public:
  explicit LineSource(int fd) : fd_(fd) {}

  // False at the end of the input, when the user interrupts, or when it cannot be read.
  bool Next(std::string* line);
  // Why it cannot; empty where it can. A terminal that has gone away cannot either.
  const std::string& error() const { return error_; }

 private:
  bool Read();

  const int fd_;
  std::string buffer_;
  std::string error_;
};

}  // namespace bthal::tool
