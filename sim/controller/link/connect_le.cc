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
                       if (p[4] != 0) return ConnectLe({0, {}, false});
                       return ConnectLe({p[5], Part(p, 6, kAddressSize), false});
                     });
  table->AddByStatus(kLeExtendedCreateConnection, {37, 7},
                     {10, {Flag(0), Byte(1, 0, 3), Flag(2), Byte(9, 1, 7)}, LeExtendedCreateFits, true},
                     [this](const Bytes& p) {
                       if (p[0] != 0) return ConnectLe({0, {}, true});
                       return ConnectLe({p[2], Part(p, 3, kAddressSize), true});
                     });
  table->Add(kLeCreateConnectionCancel, {26, 5}, {}, [this](const Bytes&) { return CancelLe(); });
}

Answer Connections::ConnectLe(Connecting wanted) {
  if (connecting_) return Answer::Status(kCommandDisallowed);
  const auto& all = Neighbours();
  const auto found = std::find_if(all.begin(), all.end(), [&](const Neighbour& neighbour) {
    return neighbour.low_energy && (wanted.peer.empty() ? lists_->Accepts(neighbour.address_type, neighbour.address)
                                                        : neighbour.address == wanted.peer);
  });
  connecting_ = std::move(wanted);
  if (found == all.end()) return Answer::Status(kSuccess);  // until it is cancelled
  connecting_->peer = found->address;
  connecting_->peer_type = found->address_type;
  return Answer::Status(kSuccess, [this] {
    outlet_->timers().After(kConnectsIn, [this, generation = generation_] {
      if (generation == generation_ && connecting_) CompleteLe(kSuccess);
    });
  });
}

Answer Connections::CancelLe() {
  if (!connecting_) return Answer::Complete({kCommandDisallowed});
  Answer answer;
  answer.then = [this] { CompleteLe(kUnknownConnection); };
  return answer;
}

//   sub-event | status | handle | role | peer type | peer [| local and peer resolvable address] | interval | latency |
//   timeout | clock accuracy
void Connections::CompleteLe(uint8_t status) {
  constexpr uint8_t kCentral = 0x00;
  constexpr uint16_t kInterval = 0x0018;
  constexpr uint16_t kTimeout = 0x01F4;
  constexpr uint8_t kAlgorithm1 = 0x00;  // the only one that the neighbours know
  const Connecting wanted = *connecting_;
  connecting_.reset();
  const uint16_t handle = status == kSuccess ? NewHandle(wanted.peer, Kind::kLowEnergy) : 0;
  Bytes event{wanted.enhanced ? kLeEnhancedConnectionComplete : kLeConnectionComplete, status};
  Put16(event, handle);
  PutAll(event, {kCentral, wanted.peer_type});
  PutAll(event, wanted.peer.empty() ? Bytes(6, 0) : wanted.peer);
  if (wanted.enhanced) event.resize(event.size() + 12);
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
