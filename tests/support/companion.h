// A bthal that goes on while the test does, and is talked to.
#pragma once

#include "bthal/run/conversation.h"
#include "support/test.h"

namespace bthal::test {

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
