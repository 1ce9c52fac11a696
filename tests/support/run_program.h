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

// A program that goes on while the test does; what it prints goes to `output`.
inline tool::Child Spawn(const std::vector<std::string>& arguments, int output) {
  std::string error;
  tool::Child child = tool::Child::Spawn(
      {.arguments = arguments, .environment = {}, .standard_output = output, .standard_error = output}, &error);
  EXPECT_TRUE(child.running()) << error;
  return child;
}

// `input` becomes its standard input.
inline ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::string& input = "") {
  const TemporaryFile in, out, error;
  ::android::base::WriteStringToFile(input, in.path);
  std::string failure;
  tool::Child child = tool::Child::Spawn({.arguments = arguments,
                                          .environment = {},
                                          .standard_input = in.fd,
                                          .standard_output = out.fd,
                                          .standard_error = error.fd},
                                         &failure);
  if (!child.running()) throw std::runtime_error(failure);
  const std::optional<int> status = child.Wait(seconds(60));
  ProgramResult result;
  if (status) result.status = WIFSIGNALED(*status) ? 128 + WTERMSIG(*status) : WEXITSTATUS(*status);
  ::android::base::ReadFileToString(out.path, &result.out);
  ::android::base::ReadFileToString(error.path, &result.error);
  return result;
}

// The same of bthal with these arguments.
inline ProgramResult Bthal(std::vector<std::string> arguments, const std::string& input = "") {
  arguments.insert(arguments.begin(), BTHAL_PROGRAM);
  return RunProgram(arguments, input);
}

// A bthal that goes on while the test does, and is talked to.
struct Companion {
  ::testing::AssertionResult Start(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), BTHAL_PROGRAM);
    std::string error;
    const bool started = talk.Start({.arguments = std::move(arguments), .environment = {}}, &error);
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
