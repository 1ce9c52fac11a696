#include "sim/controller/link/connections.h"

#include <algorithm>

#include "sim/controller/opcodes.h"
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
  AddIncoming(table);
  AddLowEnergy(table);
  table->AddByStatus(kDisconnect, {0, 5}, {3, {}, ReasonFits}, [this](const Bytes& p) {
    return links_->ForLink(p, [this](Link& link, const Bytes&) { End(link.handle, kLocalHostTerminated); });
  });
}

void Connections::Reset() {
  links_->Reset();
  random_address_.assign(6, 0);
  paging_.clear();
  connecting_.reset();
}

// The address that a host means by its type: its public one, or else the random one. There are no resolvable ones.
WireAddress Connections::OwnAddress(uint8_t type, const Bytes& random) const {
  constexpr uint8_t kRandom = 1;
  return (type & kRandom) == 0 ? WireAddress{0, identity_->address} : WireAddress{kRandom, random};
}

Link& Connections::NewLink(LinkKind kind, const Neighbour& neighbour, const WireAddress& host) {
  Link& link = links_->Add(kind, neighbour.address);
  const uint16_t handle = link.handle;
  const uint64_t generation = links_->generation();
  auto still = [links = links_, handle, generation]() -> Link* {
    return links->generation() == generation ? links->Find(handle) : nullptr;
  };
  PeersLink ends{host,
                 {neighbour.address_type, neighbour.address},
                 &(*memories_)[neighbour.address],
                 [this, still, handle](uint16_t channel, const Bytes& payload) {
                   if (still() != nullptr) outlet_->SendPacket(kH4Acl, AclWithFrame(handle, channel, payload));
                 },
                 [still] {
                   const Link* there = still();
                   return there != nullptr && there->encrypted;
                 },
                 [this, still](std::chrono::milliseconds delay, std::function<void()> action) {
                   outlet_->timers().After(delay, [still, action = std::move(action)] {
                     if (still() != nullptr) action();
                   });
                 },
                 [this, still](const Bytes& times) {
                   if (Link* there = still()) AskForTimes(*there, times);
                 },
                 [this, still](const Bytes& name) {
                   if (Link* there = still()) AskForKey(*there, name);
                 }};
  link.peers_end = MakePeer(neighbour, std::move(ends));
  return link;
}

//   sub-event | handle | least and greatest interval | latency | timeout
void Connections::AskForTimes(Link& link, const Bytes& times) {
  if (!settings_->WantsLeEvent(kLeRemoteParametersRequest)) return;
  link.asked_for_times = true;
  Bytes event{kLeRemoteParametersRequest};
  Put16(event, link.handle);
  PutAll(event, times);
  outlet_->SendEvent(kLeMetaEvent, event);
}

//   sub-event | handle | random number, 64 bits | diversifier, 16 bits
void Connections::AskForKey(Link& link, const Bytes& name) {
  link.asked_for_key = name;
  Bytes event{kLeLongTermKeyRequest};
  Put16(event, link.handle);
  PutAll(event, name);
  outlet_->SendEvent(kLeMetaEvent, event);
}

// With a link to a neighbour the synchronous ones beside it end, before it does.
void Connections::End(uint16_t handle, uint8_t reason) {
  const Link* const ending = links_->Find(handle);
  if (ending == nullptr) return;
  std::vector<uint16_t> ends;
  for (const auto& [other, link] : links_->all()) {
    if (ending->kind == LinkKind::kClassic && link.kind == LinkKind::kSynchronous && link.peer == ending->peer) {
      ends.push_back(other);
    }
  }
  ends.push_back(handle);
  for (const uint16_t end : ends) {
    links_->Remove(end);
    Bytes event{kSuccess};
    Put16(event, end);
    Put8(event, reason);
    outlet_->SendEvent(kDisconnectionCompleteEvent, event);
  }
}

void Connections::Data(uint8_t type, const Bytes& packet) {
  const uint16_t handle = GetLe16(packet.data()) & kHandleMask;
  Link* const link = links_->Find(handle);
  if (link == nullptr) {
    outlet_->ProtocolError("data for connection " + Hex(handle, 3) + ", which does not exist");
    return;
  }
  if ((type == kH4Sco) != (link->kind == LinkKind::kSynchronous)) {
    outlet_->ProtocolError("data for connection " + Hex(handle, 3) + ", which carries another kind");
    return;
  }
  credits_->Return(type, handle);
  if (type != kH4Acl || link->peers_end == nullptr) return;
  if (const std::optional<Frame> frame = link->frames.Feed(packet)) {
    // An answer may end the link, and with it what answers.
    const std::shared_ptr<Peer> peers_end = link->peers_end;
    peers_end->Receive(frame->channel, frame->payload);
  }
}

}  // namespace bthal::sim
