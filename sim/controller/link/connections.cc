#include "sim/controller/link/connections.h"

#include <algorithm>

#include "sim/controller/opcodes.h"
#include "sim/neighbours/peer.h"
#include "sim/wire/h4.h"

namespace bthal::sim {
namespace {

constexpr uint16_t kHandleMask = 0x0FFF;

// A host may say that it has no more use for the link, or why it cannot keep it.
bool ReasonFits(const Bytes& parameters) {
  constexpr uint8_t kReasons[] = {0x05, 0x13, 0x14, 0x15, 0x1A, 0x29, 0x3B};
  return std::find(std::begin(kReasons), std::end(kReasons), parameters[2]) != std::end(kReasons);
}

}  // namespace

void Connections::AddTo(CommandTable* table) {
  AddClassic(table);
  AddLowEnergy(table);
  AddQuestions(table);
  AddLinkSettings(table);
  table->AddByStatus(kDisconnect, {0, 5}, {3, {}, ReasonFits}, [this](const Bytes& p) {
    return ForConnection(p, [this](uint16_t handle, const Bytes&) { Disconnect(handle); });
  });
}

void Connections::Reset() {
  ++generation_;
  connections_.clear();
  next_handle_ = kFirstHandle;
  connecting_.reset();
}

uint16_t Connections::NewHandle(const Bytes& peer, Kind kind) {
  connections_[next_handle_] = {peer, kind};
  return next_handle_++;
}

// With a link to a neighbour the synchronous ones beside it end, before it does.
void Connections::Disconnect(uint16_t handle) {
  const Connection ending = connections_[handle];
  std::vector<uint16_t> ends;
  for (const auto& [other, connection] : connections_) {
    if (ending.kind == Kind::kClassic && connection.kind == Kind::kSynchronous && connection.peer == ending.peer) {
      ends.push_back(other);
    }
  }
  ends.push_back(handle);
  for (const uint16_t end : ends) {
    connections_.erase(end);
    Bytes event{kSuccess};
    Put16(event, end);
    Put8(event, kLocalHostTerminated);
    outlet_->SendEvent(kDisconnectionCompleteEvent, event);
  }
}

void Connections::Data(uint8_t type, const Bytes& packet) {
  const uint16_t handle = GetLe16(packet.data()) & kHandleMask;
  const auto found = connections_.find(handle);
  if (found == connections_.end()) {
    outlet_->ProtocolError("data for connection " + Hex(handle, 3) + ", which does not exist");
    return;
  }
  const Kind kind = found->second.kind;
  if ((type == kH4Sco) != (kind == Kind::kSynchronous)) {
    outlet_->ProtocolError("data for connection " + Hex(handle, 3) + ", which carries another kind");
    return;
  }
  credits_->Return(type, handle);
  if (type == kH4Acl && kind == Kind::kLowEnergy) PeerReceives(handle, packet);
}

void Connections::PeerReceives(uint16_t handle, const Bytes& packet) {
  constexpr size_t kAclHeader = 4;
  constexpr unsigned kFirstFragment = 0x2000;
  const Bytes answer = PeerAnswer(Part(packet, kAclHeader));
  if (answer.empty()) return;
  Bytes acl;
  Put16(acl, handle | kFirstFragment);
  Put16(acl, static_cast<unsigned>(answer.size()));
  PutAll(acl, answer);
  outlet_->SendPacket(kH4Acl, acl);
}

}  // namespace bthal::sim
