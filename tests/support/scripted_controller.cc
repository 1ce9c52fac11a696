#include "support/scripted_controller.h"

namespace bthal::test {
namespace {

constexpr uint8_t kCommandType = 0x01;
constexpr uint8_t kEventType = 0x04;
constexpr size_t kHeaderSize = 4;  // type, opcode (2), length

uint8_t Low(uint16_t value) { return static_cast<uint8_t>(value); }
uint8_t High(uint16_t value) { return static_cast<uint8_t>(value >> 8); }

}  // namespace

ScriptedController::ScriptedController(const TempRoot& root) {
  std::filesystem::create_symlink(pty_.host_path(), root.Below("/dev/ttySAC16"));
}

// Reads until `size` bytes are there.
bool ScriptedController::Fill(size_t size, steady_clock::time_point deadline) {
  while (received_.size() < size) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (left.count() < 0) return false;
    pollfd ready{pty_.controller(), POLLIN, 0};
    if (TEMP_FAILURE_RETRY(poll(&ready, 1, static_cast<int>(left.count()))) <= 0) return false;
    uint8_t bytes[4096];
    const ssize_t count = TEMP_FAILURE_RETRY(read(pty_.controller(), bytes, sizeof(bytes)));
    if (count <= 0) return false;
    received_.insert(received_.end(), bytes, bytes + count);
  }
  return true;
}

Bytes ScriptedController::NextCommand(milliseconds patience) {
  const auto deadline = steady_clock::now() + patience;
  if (!Fill(kHeaderSize, deadline)) return {};
  const size_t size = kHeaderSize + received_[kHeaderSize - 1];
  // Anything but a command is shown as it is, and fails the comparison it is meant for.
  if (received_[0] != kCommandType || !Fill(size, deadline)) return received_;
  const Bytes command(received_.begin() + 1, received_.begin() + static_cast<ptrdiff_t>(size));
  received_.erase(received_.begin(), received_.begin() + static_cast<ptrdiff_t>(size));
  return command;
}

::testing::AssertionResult ScriptedController::Refuses(const Bytes& command, uint8_t status, const Bytes& parameters) {
  const Bytes next = NextCommand();
  if (next != command) return ::testing::AssertionFailure() << "the host sends " << ::testing::PrintToString(next);
  Complete(OpcodeOf(command), status, parameters);
  return ::testing::AssertionSuccess();
}

void ScriptedController::Complete(uint16_t opcode, uint8_t status, const Bytes& parameters) {
  const auto size = static_cast<uint8_t>(4 + parameters.size());
  SendEvent(Joined({{0x0E, size, 1, Low(opcode), High(opcode), status}, parameters}));
}

void ScriptedController::CommandStatus(uint16_t opcode, uint8_t status) {
  SendEvent({0x0F, 4, status, 1, Low(opcode), High(opcode)});
}

void ScriptedController::SendEvent(const Bytes& event) { pty_.Write(Joined({{kEventType}, event})); }

std::vector<uint16_t> ScriptedController::CompleteAll(const std::function<bool()>& over,
                                                      const std::function<uint8_t(uint16_t)>& status_of,
                                                      const Bytes& parameters) {
  constexpr milliseconds kGlance(2);
  std::vector<uint16_t> opcodes;
  while (!over()) {
    const uint16_t opcode = OpcodeOf(NextCommand(kGlance));
    if (opcode == 0) continue;
    opcodes.push_back(opcode);
    Complete(opcode, status_of(opcode), parameters);
  }
  return opcodes;
}

Bytes Command(uint16_t opcode, const Bytes& parameters) {
  return Joined({{Low(opcode), High(opcode), static_cast<uint8_t>(parameters.size())}, parameters});
}

uint16_t OpcodeOf(const Bytes& command) {
  return command.size() < 2 ? 0 : static_cast<uint16_t>(command[0] | command[1] << 8);
}

}  // namespace bthal::test
