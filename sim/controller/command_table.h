// Which commands the controller knows, what their parameters may be, and how they are answered.
#pragma once

#include <functional>
#include <unordered_map>
#include <vector>

#include "sim/base/bytes.h"
#include "sim/controller/codes.h"

namespace bthal::sim {

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

// What a parameter may be: `width` bytes from byte `at` on, little-endian.
struct Range {
  size_t at;
  size_t width;
  uint32_t least;
  uint32_t most;
};
constexpr Range Byte(size_t at, uint32_t least, uint32_t most) { return {at, 1, least, most}; }
constexpr Range Word(size_t at, uint32_t least, uint32_t most) { return {at, 2, least, most}; }
constexpr Range Flag(size_t at) { return Byte(at, 0, 1); }

// What a command's parameters look like. Others are refused as invalid.
struct Form {
  size_t length = 0;
  std::vector<Range> ranges = {};
  bool (*valid)(const Bytes& parameters) = nullptr;  // what no range can tell, asked last
  bool open_ended = false;                           // `length` is only the least

  bool Fits(const Bytes& parameters) const;
};

// Where Read Local Supported Commands tells of a command.
struct MaskBit {
  int octet;
  int bit;
};
inline constexpr MaskBit kUnlisted{-1, 0};

struct Command {
  using Handler = std::function<Answer(const Bytes& parameters)>;

  Form form;
  bool by_status;  // answered by Command Status
  Handler handler;
};

class CommandTable {
 public:
  void Add(uint16_t opcode, MaskBit listed, Form form, Command::Handler handler);
  void AddByStatus(uint16_t opcode, MaskBit listed, Form form, Command::Handler handler);

  // Null if there is no such command.
  const Command* Find(uint16_t opcode) const;
  // The bit mask that Read Local Supported Commands returns.
  const Bytes& supported() const { return supported_; }

 private:
  static constexpr size_t kSupportedOctets = 64;

  void List(MaskBit listed);

  std::unordered_map<uint16_t, Command> commands_;
  Bytes supported_ = Bytes(kSupportedOctets, 0);
};

}  // namespace bthal::sim
