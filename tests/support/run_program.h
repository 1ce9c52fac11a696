// Runs a program to its end and keeps what it printed.
#pragma once

#include "bthal/run/conversation.h"
#include "bthal/run/process.h"
#include "support/test.h"

namespace bthal::test {

// A shell's words before a program that has a full disk: no file may grow. The thread sanitizer's runtime writes one of
// its own before main, and dies of it, unless it finds no folder for that.
inline constexpr char kFullDisk[] = "ulimit -f 0; TMPDIR=/none exec ";

struct ProgramResult {
  int status = -1;  // exit status; 128 + signal when it was killed; -1 when it did not end in time
  std::string out;
  std::string error;
};

// A program that goes on while the test does; what it prints goes to `output`, and its complaints too unless they have
// a place of their own. -1: the test's own descriptor.
inline tool::Child Spawn(const std::vector<std::string>& arguments, int output, std::optional<int> complaints = {},
                         int input = -1) {
  std::string error;
  tool::Child child = tool::Child::Spawn({.arguments = arguments,
                                          .environment = {},
                                          .standard_input = input,
                                          .standard_output = output,
                                          .standard_error = complaints.value_or(output)},
                                         &error);
  EXPECT_TRUE(child.running()) << error;
  return child;
}

// `input` becomes its standard input.
inline ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::string& input = "") {
  const TemporaryFile in, out, error;
  ::android::base::WriteStringToFile(input, in.path);
  const std::optional<int> status = Spawn(arguments, out.fd, error.fd, in.fd).Wait(seconds(60));
  ProgramResult result = {-1, ContentOf(out.path), ContentOf(error.path)};
  if (status) result.status = WIFSIGNALED(*status) ? 128 + WTERMSIG(*status) : WEXITSTATUS(*status);
  return result;
}

// bthal with these arguments, and what comes of it.
inline std::vector<std::string> BthalCommand(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), BTHAL_PROGRAM);
  return arguments;
}
inline ProgramResult Bthal(const std::vector<std::string>& arguments, const std::string& input = "") {
  return RunProgram(BthalCommand(arguments), input);
}

// A bthal that goes on while the test does, and is talked to.
struct Companion {
  ::testing::AssertionResult Start(const std::vector<std::string>& arguments) {
    std::string error;
    const bool started = talk.Start({.arguments = BthalCommand(arguments), .environment = {}}, &error);
    return started ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << error;
  }
  bool Says(const std::string& text) { return talk.ReadUntil(text, seconds(60)); }
  // Its exit status; -1 when it was killed or does not end.
  int End() {
    const std::optional<int> status = talk.ReadToTheEnd(seconds(20));
    return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
  }

  std::vector<std::string> lines;
  tool::Conversation talk{[this](const std::string& line) { lines.push_back(line); }};
};

}  // namespace bthal::test
