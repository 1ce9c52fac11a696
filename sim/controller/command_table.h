// Which commands the controller knows, and what its parts need to obey them.
#pragma once

#include <functional>
#include <unordered_map>

#include "sim/base/bytes.h"
#include "sim/base/timers.h"

namespace bthal::sim {

// HCI status codes.
inline constexpr uint8_t kSuccess = 0x00;
inline constexpr uint8_t kUnknownCommand = 0x01;
inline constexpr uint8_t kUnknownConnection = 0x02;
inline constexpr uint8_t kHardwareFailure = 0x03;
inline constexpr uint8_t kPageTimeout = 0x04;
inline constexpr uint8_t kCommandDisallowed = 0x0C;
inline constexpr uint8_t kInvalidParameters = 0x12;
inline constexpr uint8_t kLocalHostTerminated = 0x16;

// How a command is answered.
struct Answer {
  enum class Kind { kComplete, kStatus, kNone };

  Kind kind = Kind::kComplete;
  Bytes parameters{kSuccess};  // of a Command Complete the return parameters, of a Command Status the status alone
  std::function<void()> sent;  // called when the answer has left for the host; may be empty
  std::function<void()> then;  // called when the answer has been queued, to send what follows it; may be empty

  static Answer Complete(Bytes parameters) { return {Kind::kComplete, std::move(parameters), {}, {}}; }
  static Answer Status(uint8_t status, std::function<void()> then = {}) {
    return {Kind::kStatus, {status}, {}, std::move(then)};
  }
  static Answer None(std::function<void()> then = {}) { return {Kind::kNone, {}, {}, std::move(then)}; }
};

// The way to the host, for the controller's parts. Everything happens on the board's thread.
class Outlet {
 public:
  virtual ~Outlet() = default;
  virtual void SendEvent(uint8_t code, const Bytes& parameters) = 0;
  virtual void SendPacket(uint8_t type, const Bytes& packet) = 0;
  // Bytes that the host has not taken yet.
  virtual size_t Waiting() const = 0;
  virtual void ProtocolError(const std::string& what) = 0;
  // Cleared when the power goes.
  virtual Timers& timers() = 0;
};

struct Command {
  using Handler = std::function<Answer(const Bytes& parameters)>;

  size_t min_length;
  size_t max_length;
  bool by_status;  // answered by Command Status
  Handler handler;
};

class CommandTable {
 public:
  static constexpr size_t kAnyLength = 255;
  static constexpr int kNoBit = -1;

  // `octet` and `bit` say where Read Local Supported Commands tells of it; kNoBit for commands that it does not cover.
  void Add(uint16_t opcode, size_t length, int octet, int bit, Command::Handler handler) {
    AddCommand(opcode, {length, length, false, std::move(handler)}, octet, bit);
  }
  void AddOfAnyLength(uint16_t opcode, size_t min_length, int octet, int bit, Command::Handler handler) {
    AddCommand(opcode, {min_length, kAnyLength, false, std::move(handler)}, octet, bit);
  }
  void AddByStatus(uint16_t opcode, size_t min_length, int octet, int bit, Command::Handler handler) {
    AddCommand(opcode, {min_length, kAnyLength, true, std::move(handler)}, octet, bit);
  }

  // Null if there is no such command.
  const Command* Find(uint16_t opcode) const {
    const auto found = commands_.find(opcode);
    return found == commands_.end() ? nullptr : &found->second;
  }
  // The bit mask that Read Local Supported Commands returns.
  const Bytes& supported() const { return supported_; }

 private:
  static constexpr size_t kSupportedOctets = 64;

  void AddCommand(uint16_t opcode, Command command, int octet, int bit) {
    commands_[opcode] = std::move(command);
    if (octet != kNoBit) supported_[static_cast<size_t>(octet)] |= static_cast<uint8_t>(1u << bit);
  }

  std::unordered_map<uint16_t, Command> commands_;
  Bytes supported_ = Bytes(kSupportedOctets, 0);
};

}  // namespace bthal::sim
