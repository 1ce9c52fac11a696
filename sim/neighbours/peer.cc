#include "sim/neighbours/peer.h"

namespace bthal::sim {
namespace {

Bytes Frame(uint16_t channel, const Bytes& payload) {
  Bytes frame;
  Put16(frame, static_cast<unsigned>(payload.size()));
  Put16(frame, channel);
  PutAll(frame, payload);
  return frame;
}

Bytes AttributeAnswer(const Bytes& request) {
  constexpr uint8_t kErrorResponse = 0x01;
  constexpr uint8_t kMtuRequest = 0x02;
  constexpr uint8_t kMtuResponse = 0x03;
  constexpr unsigned kLeastMtu = 23;
  constexpr uint8_t kNotSupported = 0x06;
  constexpr uint8_t kCommandFlag = 0x40;
  const uint8_t opcode = request[0];
  if (opcode == kMtuRequest) {
    Bytes answer{kMtuResponse};
    Put16(answer, kLeastMtu);
    return answer;
  }
  // Requests are even; commands, responses, notifications and confirmations want no answer.
  if ((opcode & 1) != 0 || (opcode & kCommandFlag) != 0 || opcode == 0x1E) return {};
  return {kErrorResponse, opcode, 0, 0, kNotSupported};
}

Bytes SignallingAnswer(const Bytes& request) {
  constexpr uint8_t kReject = 0x01;
  constexpr uint8_t kFirstResponseOnly = 0x01;
  if (request.size() < 4 || request[0] == kFirstResponseOnly) return {};
  return {kReject, request[1], 2, 0, 0, 0};
}

Bytes PairingAnswer(const Bytes& request) {
  constexpr uint8_t kPairingRequest = 0x01;
  constexpr uint8_t kPairingFailed = 0x05;
  constexpr uint8_t kPairingNotSupported = 0x05;
  if (request[0] != kPairingRequest) return {};
  return {kPairingFailed, kPairingNotSupported};
}

}  // namespace

//   length, 16 bits | channel, 16 bits | payload
Bytes PeerAnswer(const Bytes& l2cap) {
  constexpr size_t kHeader = 4;
  constexpr uint16_t kAttributes = 4;
  constexpr uint16_t kSignalling = 5;
  constexpr uint16_t kPairing = 6;
  if (l2cap.size() <= kHeader || GetLe16(l2cap.data()) + kHeader != l2cap.size()) return {};
  const uint16_t channel = GetLe16(&l2cap[2]);
  const Bytes request = Part(l2cap, kHeader);
  Bytes answer;
  if (channel == kAttributes) answer = AttributeAnswer(request);
  if (channel == kSignalling) answer = SignallingAnswer(request);
  if (channel == kPairing) answer = PairingAnswer(request);
  return answer.empty() ? answer : Frame(channel, answer);
}

}  // namespace bthal::sim
