#include "sim/neighbours/phone.h"

namespace bthal::sim {
namespace {

constexpr uint16_t kAttributes = 4;
// A host that has just heard of the connection still makes room for it.
constexpr auto kAsksIn = std::chrono::milliseconds(100);

}  // namespace

//   opcode | first and last handle | the device's name
void PhoneEnd::Begin() {
  constexpr uint8_t kReadByType = 0x08;
  link_.later(kAsksIn, [this] { link_.send(kAttributes, {kReadByType, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x2A}); });
}

// It has no attributes of its own.
void PhoneEnd::Receive(uint16_t channel, const Bytes& payload) {
  constexpr uint8_t kErrorResponse = 0x01;
  constexpr uint8_t kMtuRequest = 0x02;
  constexpr uint8_t kNotFound = 0x0A;
  constexpr uint8_t kConfirmation = 0x1E;
  constexpr uint8_t kCommandFlag = 0x40;
  if (channel != kAttributes || payload.empty()) return;
  const uint8_t opcode = payload[0];
  if (opcode == kMtuRequest) {
    link_.send(kAttributes, {kMtuRequest + 1, 23, 0});
  } else if ((opcode & 1) == 0 && (opcode & kCommandFlag) == 0 && opcode != kConfirmation) {
    const uint8_t low = payload.size() > 2 ? payload[1] : uint8_t{0};
    const uint8_t high = payload.size() > 2 ? payload[2] : uint8_t{0};
    link_.send(kAttributes, {kErrorResponse, opcode, low, high, kNotFound});
  }
}

}  // namespace bthal::sim
