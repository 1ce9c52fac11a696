// How connections to low-energy neighbours come about.
#include <algorithm>
#include <bit>

#include "sim/controller/link/connections.h"
#include "sim/controller/opcodes.h"
#include "sim/controller/timing.h"
#include "sim/neighbours/neighbours.h"

namespace bthal::sim {
namespace {

constexpr auto kConnectsIn = std::chrono::milliseconds(20);
constexpr size_t kAddressSize = 6;

//   scan interval and window, 16 bits each | filter policy | peer type | peer | own address type | times
bool LeCreateFits(const Bytes& parameters) {
  return ScanTimesFit(parameters.data(), 0x4000) && ConnectionTimesFit(&parameters[13]);
}

//   filter policy | own address type | peer type | peer | physical layers | of each: scan interval and window | times
bool LeExtendedCreateFits(const Bytes& parameters) {
  constexpr uint8_t kTwoMegabit = 0x02;  // nobody advertises there first
  constexpr size_t kHeader = 10;
  constexpr size_t kLayer = 16;
  const uint8_t layers = parameters[9];
  if (parameters.size() != kHeader + kLayer * static_cast<size_t>(std::popcount(layers))) return false;
  for (size_t at = kHeader; at < parameters.size(); at += kLayer) {
    if (!ScanTimesFit(&parameters[at], 0xFFFF) || !ConnectionTimesFit(&parameters[at + 4])) return false;
  }
  return layers != kTwoMegabit;
}

}  // namespace

void Connections::AddLowEnergy(CommandTable* table) {
  table->AddByStatus(kLeCreateConnection, {26, 4}, {25, {Flag(4), Byte(5, 0, 3), Byte(12, 0, 3)}, LeCreateFits},
                     [this](const Bytes& p) {
                       if (p[4] != 0) return ConnectLe({0, {}, false, p[12]});
                       return ConnectLe({p[5], Part(p, 6, kAddressSize), false, p[12]});
                     });
  table->AddByStatus(kLeExtendedCreateConnection, {37, 7},
                     {10, {Flag(0), Byte(1, 0, 3), Flag(2), Byte(9, 1, 7)}, LeExtendedCreateFits, true},
                     [this](const Bytes& p) {
                       if (p[0] != 0) return ConnectLe({0, {}, true, p[1]});
                       return ConnectLe({p[2], Part(p, 3, kAddressSize), true, p[1]});
                     });
  table->Add(kLeCreateConnectionCancel, {26, 5}, {}, [this](const Bytes&) { return CancelLe(); });
}

Answer Connections::ConnectLe(Connecting wanted) {
  if (connecting_) return Answer::Status(kCommandDisallowed);
  if (!wanted.peer.empty() && links_->FindPeer(LinkKind::kLowEnergy, wanted.peer) != nullptr) {
    return Answer::Status(kConnectionExists);
  }
  const auto& all = Neighbours();
  const auto found = std::find_if(all.begin(), all.end(), [&](const Neighbour& neighbour) {
    if (!neighbour.low_energy || links_->FindPeer(LinkKind::kLowEnergy, neighbour.address) != nullptr) return false;
    return wanted.peer.empty() ? lists_->Accepts(neighbour.address_type, neighbour.address)
                               : neighbour.address == wanted.peer;
  });
  connecting_ = std::move(wanted);
  ++attempts_;
  if (found == all.end()) return Answer::Status(kSuccess);  // until it is cancelled
  connecting_->peer = found->address;
  connecting_->peer_type = found->address_type;
  return Answer::Status(kSuccess, [this] {
    outlet_->timers().After(kConnectsIn, [this, attempt = attempts_] {
      if (attempt == attempts_ && connecting_) CompleteLe(kSuccess);
    });
  });
}

Answer Connections::CancelLe() {
  if (!connecting_) return Answer::Complete({kCommandDisallowed});
  Answer answer;
  answer.then = [this] { CompleteLe(kUnknownConnection); };
  return answer;
}

void Connections::CompleteLe(uint8_t status) {
  const Connecting wanted = *connecting_;
  connecting_.reset();
  const WireAddress peer{wanted.peer_type, wanted.peer.empty() ? Bytes(kAddressSize, 0) : wanted.peer};
  if (status != kSuccess) {
    TellLe(status, 0, Role::kCentral, peer, wanted.enhanced);
    return;
  }
  const Link& link =
      NewLink(LinkKind::kLowEnergy, *FindNeighbour(peer.address), OwnAddress(wanted.own_type, random_address_));
  const std::shared_ptr<Peer> peers_end = link.peers_end;
  TellLe(kSuccess, link.handle, Role::kCentral, peer, wanted.enhanced);
  peers_end->Begin();
}

bool Connections::ConnectToHost(const Advertised& advertised) {
  const Neighbour& phone = Phone();
  const bool wanted = advertised.peer.empty() || advertised.peer == phone.address;
  const bool accepted = !advertised.only_accepted || lists_->Accepts(phone.address_type, phone.address);
  if (!wanted || !accepted || links_->FindPeer(LinkKind::kLowEnergy, phone.address) != nullptr) return false;
  const bool by_set = advertised.set.has_value();
  Link& link = NewLink(LinkKind::kLowEnergy, phone,
                       OwnAddress(advertised.own_type, by_set ? advertised.own_address : random_address_));
  link.role = Role::kPeripheral;
  const std::shared_ptr<Peer> peers_end = link.peers_end;
  const uint16_t handle = link.handle;
  TellLe(kSuccess, handle, Role::kPeripheral, {phone.address_type, phone.address}, by_set);
  if (by_set) {
    constexpr uint8_t kEvents = 1;  // the only one in which the phone heard it
    Bytes event{kLeAdvertisingSetTerminated, kSuccess, *advertised.set};
    Put16(event, handle);
    Put8(event, kEvents);
    outlet_->SendEvent(kLeMetaEvent, event);
  }
  peers_end->Begin();
  return true;
}

//   sub-event | status | handle | role | peer type | peer [| local and peer resolvable address] | interval | latency |
//   timeout | clock accuracy
void Connections::TellLe(uint8_t status, uint16_t handle, Role role, const WireAddress& peer, bool enhanced) {
  constexpr uint16_t kInterval = 0x0018;
  constexpr uint16_t kTimeout = 0x01F4;
  constexpr uint8_t kAlgorithm1 = 0x00;  // the only one that the neighbours know
  Bytes event{enhanced ? kLeEnhancedConnectionComplete : kLeConnectionComplete, status};
  Put16(event, handle);
  PutAll(event, {static_cast<uint8_t>(role), peer.type});
  PutAll(event, peer.address);
  if (enhanced) event.resize(event.size() + 12);
  Put16(event, kInterval);
  Put16(event, 0);
  Put16(event, kTimeout);
  Put8(event, 0);
  outlet_->SendEvent(kLeMetaEvent, event);
  if (status != kSuccess || !settings_->WantsLeEvent(kLeChannelSelection)) return;
  Bytes selection{kLeChannelSelection};
  Put16(selection, handle);
  Put8(selection, kAlgorithm1);
  outlet_->SendEvent(kLeMetaEvent, selection);
}

}  // namespace bthal::sim
