// A controller that says what the test tells it to, when the test tells it to.
#pragma once

#include "support/pty.h"
#include "support/test.h"

namespace bthal::test {

// The other end of the root's /dev/ttySAC16, H4. It decides nothing: a test reads as a script of commands expected and
// answers given, and fails at the line where the two differ.
class ScriptedController {
 public:
  explicit ScriptedController(const TempRoot& root);

  // The next command of the host, without its type byte; empty when none has come within `patience`.
  Bytes NextCommand(milliseconds patience = seconds(10));

  // Waits for this command, and completes it.
  ::testing::AssertionResult Refuses(const Bytes& command, uint8_t status, const Bytes& parameters = {});
  ::testing::AssertionResult Accepts(const Bytes& command, const Bytes& parameters = {}) {
    return Refuses(command, 0, parameters);
  }

  // Command Complete with one credit, a status and return parameters.
  void Complete(uint16_t opcode, uint8_t status, const Bytes& parameters = {});
  // Command Status with one credit.
  void CommandStatus(uint16_t opcode, uint8_t status);
  // Any event, as it is.
  void SendEvent(const Bytes& event);

  // Completes every command until `over()`, with the status that `status_of` has for its opcode and with `parameters`.
  // Returns the opcodes, in order. For the stretches that a test is not about.
  std::vector<uint16_t> CompleteAll(const std::function<bool()>& over,
                                    const std::function<uint8_t(uint16_t)>& status_of, const Bytes& parameters);

  // Ends the line for good.
  void HangUp() { pty_.HangUp(); }

 private:
  bool Fill(size_t size, steady_clock::time_point deadline);

  Pty pty_;
  Bytes received_;
};

// A command as NextCommand returns it.
Bytes Command(uint16_t opcode, const Bytes& parameters = {});

// The opcode of a command; 0 for an empty one.
uint16_t OpcodeOf(const Bytes& command);

}  // namespace bthal::test
