#include "sim/controller/loopback.h"

#include <algorithm>

#include "sim/wire/h4.h"

namespace bthal::sim {
namespace {

constexpr uint16_t kReadLoopbackMode = 0x1801;
constexpr uint16_t kWriteLoopbackMode = 0x1802;
// Reset, flow control, buffer sizes and the loopback mode itself are obeyed even in loopback.
constexpr uint16_t kObeyed[] = {0x0C03, 0x0C31, 0x0C33, 0x0C35, 0x1005, kReadLoopbackMode, kWriteLoopbackMode};

constexpr uint8_t kConnectionComplete = 0x03;
constexpr uint8_t kNumberOfCompletedPackets = 0x13;
constexpr uint8_t kLoopbackCommandEvent = 0x19;
constexpr uint8_t kAclLink = 0x01;
constexpr uint8_t kScoLink = 0x00;
constexpr uint16_t kAclHandle = 0x0001;
constexpr uint16_t kFirstScoHandle = 0x0002;
constexpr int kScoLinks = 3;
constexpr uint16_t kHandleMask = 0x0FFF;
constexpr size_t kMostParameters = 255;

}  // namespace

void Loopback::AddTo(CommandTable* table) {
  table->Add(kReadLoopbackMode, 0, 16, 0, [this](const Bytes&) {
    return Answer::Complete({kSuccess, static_cast<uint8_t>(on_)});
  });
  table->Add(kWriteLoopbackMode, 1, 16, 1, [this](const Bytes& p) { return Write(p); });
}

bool Loopback::Takes(uint16_t opcode) const {
  return on_ && std::find(std::begin(kObeyed), std::end(kObeyed), opcode) == std::end(kObeyed);
}

// Entering the mode tells of the handles that may be used in it: one for ACL data and three for SCO data.
//   status | handle | address | link type | encryption
Answer Loopback::Write(const Bytes& parameters) {
  constexpr uint8_t kLocal = 1;
  if (parameters[0] > kLocal) return Answer::Complete({kInvalidParameters});
  const bool enters = parameters[0] == kLocal && !on_;
  on_ = parameters[0] == kLocal;
  auto connected = [&](uint16_t handle, uint8_t link) {
    Bytes event{kSuccess};
    Put16(event, handle);
    PutAll(event, identity_->address);
    PutAll(event, {link, 0x00});
    outlet_->SendEvent(kConnectionComplete, event);
  };
  if (enters) {
    connected(kAclHandle, kAclLink);
    for (uint16_t i = 0; i < kScoLinks; ++i) connected(static_cast<uint16_t>(kFirstScoHandle + i), kScoLink);
  }
  return Answer::Complete({kSuccess});
}

Bytes Loopback::Command(const Bytes& packet) {
  // An event holds three bytes less than the longest command: the rest is cut off.
  const size_t length = std::min(packet.size(), kMostParameters);
  Bytes event{kLoopbackCommandEvent, static_cast<uint8_t>(length)};
  PutAll(event, Bytes(packet.begin(), packet.begin() + static_cast<ptrdiff_t>(length)));
  return event;
}

void Loopback::Data(uint8_t type, const Bytes& packet) {
  outlet_->SendPacket(type, packet);
  if (type == kH4Sco) return;  // no credits without synchronous flow control
  Bytes completed{1};
  Put16(completed, GetLe16(packet.data()) & kHandleMask);
  Put16(completed, 1);
  outlet_->SendEvent(kNumberOfCompletedPackets, completed);
}

}  // namespace bthal::sim
