// A child process that is told lines and answers in lines.
#pragma once

#include <android-base/unique_fd.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bthal/run/process.h"

namespace bthal::tool {

class Conversation {
 public:
  // `on_line` is called for every line of its standard output and error, from within Read.
  explicit Conversation(std::function<void(const std::string&)> on_line) : on_line_(std::move(on_line)) {}

  bool Start(SpawnOptions options, std::string* error);
  pid_t pid() const { return child_.pid(); }

  void Say(const std::string& line) const;
  // Its standard input ends here.
  void HangUp() { input_.reset(); }

  // Reads until a line contains `text`. False when it stops talking, `patience` passes, or the user interrupts first.
  bool ReadUntil(const std::string& text, std::chrono::milliseconds patience);
  // Reads until it stops talking; then its wait status. Nothing as above.
  std::optional<int> ReadToTheEnd(std::chrono::milliseconds patience);

 private:
  enum class Outcome { kLine, kEnd, kGaveUp };
  Outcome ReadLine(std::string* line, std::chrono::steady_clock::time_point deadline);

  const std::function<void(const std::string&)> on_line_;
  ::android::base::unique_fd input_;
  ::android::base::unique_fd output_;
  std::string buffer_;
  Child child_;  // last: it ends before its pipes do
};

}  // namespace bthal::tool
