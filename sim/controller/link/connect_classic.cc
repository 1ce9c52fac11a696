// How connections to classic neighbours come about.
#include "sim/controller/link/connections.h"
#include "sim/controller/opcodes.h"
#include "sim/neighbours/neighbours.h"

namespace bthal::sim {
namespace {

constexpr auto kConnectsIn = std::chrono::milliseconds(20);
constexpr auto kPagesFor = std::chrono::milliseconds(200);
constexpr size_t kAddressSize = 6;
constexpr size_t kNameSize = 248;
constexpr uint8_t kScoLink = 0x00;
constexpr uint8_t kAclLink = 0x01;

const Neighbour* FindClassic(const Bytes& address) {
  for (const Neighbour& neighbour : Neighbours()) {
    if (neighbour.address == address && !neighbour.low_energy) return &neighbour;
  }
  return nullptr;
}

//   handle | send and receive bandwidth, 32 bits each | latency | voice setting | retransmission | packet types
bool SynchronousFits(const Bytes& parameters) {
  constexpr uint8_t kDoNotCare = 0xFF;
  return parameters[14] <= 2 || parameters[14] == kDoNotCare;
}

}  // namespace

void Connections::AddClassic(CommandTable* table) {
  table->AddByStatus(kCreateConnection, {0, 4}, {13, {Byte(8, 0, 2), Flag(12)}}, [this](const Bytes& p) {
    return Answer::Status(kSuccess, [this, peer = Part(p, 0, kAddressSize)] { ConnectClassic(peer); });
  });
  table->AddByStatus(kRemoteNameRequest, {2, 3}, {10, {Byte(6, 0, 2)}}, [this](const Bytes& p) {
    return Answer::Status(kSuccess, [this, peer = Part(p, 0, kAddressSize)] { TellName(peer); });
  });
  table->AddByStatus(kSetupSynchronousConnection, {16, 3},
                     {17, {Word(10, 4, 0xFFFF), Word(12, 0, 0x3FF)}, SynchronousFits}, [this](const Bytes& p) {
                       const auto link = connections_.find(GetLe16(p.data()));
                       if (link == connections_.end() || link->second.kind != Kind::kClassic)
                         return Answer::Status(kUnknownConnection);
                       return Answer::Status(kSuccess, [this, handle = link->first] { ConnectSynchronous(handle); });
                     });
}

//   status | handle | address | link type | encryption
void Connections::ConnectClassic(const Bytes& peer) {
  const bool there = FindClassic(peer) != nullptr;
  outlet_->timers().After(there ? kConnectsIn : kPagesFor, [this, peer, there, generation = generation_] {
    if (generation != generation_) return;
    Bytes event{there ? kSuccess : kPageTimeout};
    Put16(event, there ? NewHandle(peer, Kind::kClassic) : 0);
    PutAll(event, peer);
    PutAll(event, {kAclLink, 0x00});
    outlet_->SendEvent(kConnectionCompleteEvent, event);
  });
}

//   status | handle | address | link type | interval | window | lengths received and sent, 16 bits each | air mode
void Connections::ConnectSynchronous(uint16_t handle) {
  constexpr uint8_t kCvsd = 0x02;
  const Bytes peer = connections_[handle].peer;
  Bytes event{kSuccess};
  Put16(event, NewHandle(peer, Kind::kSynchronous));
  PutAll(event, peer);
  PutAll(event, {kScoLink, 0, 0, 0, 0, 0, 0, kCvsd});
  outlet_->SendEvent(kSynchronousConnectionEvent, event);
}

//   status | address | name, padded with zeros
void Connections::TellName(const Bytes& peer) {
  const Neighbour* neighbour = FindClassic(peer);
  Bytes event{neighbour == nullptr ? kPageTimeout : kSuccess};
  PutAll(event, peer);
  if (neighbour != nullptr) event.insert(event.end(), neighbour->name.begin(), neighbour->name.end());
  event.resize(1 + kAddressSize + kNameSize);
  outlet_->SendEvent(kRemoteNameEvent, event);
}

}  // namespace bthal::sim
