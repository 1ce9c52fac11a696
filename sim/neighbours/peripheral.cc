#include "sim/neighbours/peripheral.h"

namespace bthal::sim {
namespace {

constexpr uint16_t kAttributes = 4;
constexpr uint16_t kSignalling = 5;
constexpr uint16_t kPairing = 6;
constexpr auto kBatteryEvery = std::chrono::milliseconds(1000);
constexpr auto kAsksIn = std::chrono::milliseconds(100);

//   code | identifier | length, 16 bits | ...
Bytes SignallingAnswer(const Bytes& request) {
  constexpr uint8_t kReject = 0x01;
  constexpr uint8_t kFirstResponseOnly = 0x01;
  if (request.size() < 4 || request[0] == kFirstResponseOnly) return {};
  return {kReject, request[1], 2, 0, 0, 0};
}

}  // namespace

// It would rather save its battery: an interval of 40 to 50 ms, of which it may sleep through four, and 5 s of
// patience.
void Peripheral::Begin() {
  link_.later(kAsksIn, [this] {
    Bytes times;
    for (const unsigned value : {0x20, 0x28, 4, 500}) Put16(times, value);
    link_.ask_for_times(times);
  });
}

void Peripheral::Receive(uint16_t channel, const Bytes& payload) {
  if (payload.empty()) return;
  std::vector<Bytes> answers;
  if (channel == kAttributes) answers = {attributes_.Answer(payload)};
  if (channel == kSignalling) answers = {SignallingAnswer(payload)};
  if (channel == kPairing) answers = pairing_.Receive(payload);
  for (const Bytes& answer : answers) {
    if (!answer.empty()) link_.send(channel, answer);
  }
  if (attributes_.notifies() && !drains_) {
    drains_ = true;
    link_.later(kBatteryEvery, [this] { Drain(); });
  }
}

void Peripheral::Encrypted() {
  for (const Bytes& message : pairing_.Encrypted()) link_.send(kPairing, message);
}

void Peripheral::Drain() {
  const Bytes notification = attributes_.Drain();
  if (!notification.empty()) link_.send(kAttributes, notification);
  drains_ = attributes_.notifies();
  if (drains_) link_.later(kBatteryEvery, [this] { Drain(); });
}

}  // namespace bthal::sim
