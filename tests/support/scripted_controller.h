// A controller that says what the test tells it to, when the test tells it to.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "support/pty.h"
#include "support/temp_root.h"

namespace bthal::test {

// The other end of the root's /dev/ttySAC16, H4. It decides nothing: a test reads as a script of commands expected and
// answers given, and fails at the line where the two differ.
class ScriptedController {
 public:
  explicit ScriptedController(const TempRoot& root);

  // The next command of the host, without its type byte; empty when none has come within `patience`.
  std::vector<uint8_t> NextCommand(std::chrono::milliseconds patience = std::chrono::seconds(10));

  // Command Complete with one credit, a status and return parameters.
  void Complete(uint16_t opcode, uint8_t status, const std::vector<uint8_t>& parameters = {});
  // Command Status with one credit.
  void CommandStatus(uint16_t opcode, uint8_t status);
  // Any event, as it is.
  void SendEvent(const std::vector<uint8_t>& event);

  // Completes every command until `over()`, with the status that `status_of` has for its opcode and with `parameters`.
  // Returns the opcodes, in order. For the stretches that a test is not about.
  std::vector<uint16_t> CompleteAll(const std::function<bool()>& over,
                                    const std::function<uint8_t(uint16_t)>& status_of,
                                    const std::vector<uint8_t>& parameters);

  // Ends the line for good.
  void HangUp() { pty_.HangUp(); }

 private:
  bool Fill(size_t size, std::chrono::steady_clock::time_point deadline);

  Pty pty_;
  std::vector<uint8_t> received_;
};

// A command as NextCommand returns it.
std::vector<uint8_t> Command(uint16_t opcode, const std::vector<uint8_t>& parameters = {});

// The opcode of a command; 0 for an empty one.
uint16_t OpcodeOf(const std::vector<uint8_t>& command);

}  // namespace bthal::test
