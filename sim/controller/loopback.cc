#include "sim/controller/loopback.h"

#include <algorithm>

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

// Reset, flow control, buffer sizes and the loopback mode itself are obeyed even in loopback.
constexpr uint16_t kObeyed[] = {kReset,
                                kSetControllerToHostFlowControl,
                                kHostBufferSize,
                                kHostCompletedPackets,
                                kReadBufferSize,
                                kReadLoopbackMode,
                                kWriteLoopbackMode};

constexpr uint8_t kLocal = 1;
constexpr uint8_t kAclLink = 0x01;
constexpr uint8_t kScoLink = 0x00;
constexpr uint16_t kAclHandle = 0x0001;
constexpr uint16_t kFirstScoHandle = 0x0002;
constexpr int kScoLinks = 3;
constexpr uint16_t kHandleMask = 0x0FFF;
constexpr size_t kMostParameters = 255;

}  // namespace

void Loopback::AddTo(CommandTable* table) {
  table->Add(kReadLoopbackMode, {16, 0}, {}, [this](const Bytes&) {
    return Answer::Complete({kSuccess, static_cast<uint8_t>(on_)});
  });
  table->Add(kWriteLoopbackMode, {16, 1}, {1, {Byte(0, 0, kLocal)}}, [this](const Bytes& p) { return Write(p[0]); });
}

bool Loopback::Takes(uint16_t opcode) const {
  return on_ && std::find(std::begin(kObeyed), std::end(kObeyed), opcode) == std::end(kObeyed);
}

// Entering the mode tells of the handles that may be used in it: one for ACL data and three for SCO data.
//   status | handle | address | link type | encryption
Answer Loopback::Write(uint8_t mode) {
  const bool enters = mode == kLocal && !on_;
  on_ = mode == kLocal;
  auto connected = [&](uint16_t handle, uint8_t link) {
    Bytes event{kSuccess};
    Put16(event, handle);
    PutAll(event, identity_->address);
    PutAll(event, {link, 0x00});
    outlet_->SendEvent(kConnectionCompleteEvent, event);
  };
  if (enters) {
    connected(kAclHandle, kAclLink);
    for (uint16_t i = 0; i < kScoLinks; ++i) connected(static_cast<uint16_t>(kFirstScoHandle + i), kScoLink);
  }
  return {};
}

Bytes Loopback::Command(const Bytes& packet) {
  // An event holds three bytes less than the longest command: the rest is cut off.
  const Bytes parameters = Part(packet, 0, kMostParameters);
  Bytes event{kLoopbackCommandEvent, static_cast<uint8_t>(parameters.size())};
  PutAll(event, parameters);
  return event;
}

void Loopback::Data(uint8_t type, const Bytes& packet) const {
  outlet_->SendPacket(type, packet);
  credits_->Return(type, GetLe16(packet.data()) & kHandleMask);
}

}  // namespace bthal::sim
