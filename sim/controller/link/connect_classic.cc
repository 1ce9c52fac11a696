// How connections to classic neighbours come about.
#include <utility>

#include "sim/controller/link/connections.h"
#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr auto kConnectsIn = std::chrono::milliseconds(20);
constexpr auto kPagesFor = std::chrono::milliseconds(200);
constexpr size_t kAddressSize = 6;
constexpr size_t kNameSize = 248;
constexpr uint8_t kScoLink = 0x00;
constexpr uint8_t kAclLink = 0x01;

const Neighbour* FindClassic(const Bytes& address) {
  const Neighbour* neighbour = FindNeighbour(address);
  return neighbour == nullptr || neighbour->low_energy ? nullptr : neighbour;
}

//   send and receive bandwidth, 32 bits each | latency | voice setting | retransmission | packet types
bool SynchronousFits(const Bytes& parameters) {
  constexpr uint8_t kDoNotCare = 0xFF;
  return parameters[14] <= 2 || parameters[14] == kDoNotCare;
}

}  // namespace

void Connections::AddClassic(CommandTable* table) {
  table->AddByStatus(kCreateConnection, {0, 4}, {13, {Byte(8, 0, 2), Flag(12)}}, [this](const Bytes& p) {
    const Bytes peer = Part(p, 0, kAddressSize);
    if (links_->FindPeer(LinkKind::kClassic, peer) != nullptr) return Answer::Status(kConnectionExists);
    if (!paging_.empty()) return Answer::Status(kCommandDisallowed);
    paging_ = peer;
    return Answer::Status(kSuccess, [this, peer] { ConnectClassic(peer); });
  });
  table->Add(kCreateConnectionCancel, {0, 7}, {kAddressSize}, [this](const Bytes& p) {
    const bool now = !paging_.empty() && paging_ == p;
    Bytes parameters{now ? kSuccess : kUnknownConnection};
    PutAll(parameters, p);
    Answer answer = Answer::Complete(parameters);
    if (now) answer.then = [this] { CompleteClassic(kUnknownConnection); };
    return answer;
  });
  table->AddByStatus(kRemoteNameRequest, {2, 3}, {10, {Byte(6, 0, 2)}}, [this](const Bytes& p) {
    return Answer::Status(kSuccess, [this, peer = Part(p, 0, kAddressSize)] { TellName(peer); });
  });
  // Names are told at once: it always comes too late.
  table->Add(kRemoteNameRequestCancel, {2, 4}, {kAddressSize}, [](const Bytes& p) {
    Bytes answer{kUnknownConnection};
    PutAll(answer, p);
    return Answer::Complete(answer);
  });
  table->AddByStatus(kSetupSynchronousConnection, {16, 3},
                     {17, {Word(10, 4, 0xFFFF), Word(12, 0, 0x3FF)}, SynchronousFits}, [this](const Bytes& p) {
                       const Link* const link = links_->Find(GetLe16(p.data()));
                       if (link == nullptr || link->kind != LinkKind::kClassic)
                         return Answer::Status(kUnknownConnection);
                       return Answer::Status(kSuccess, [this, handle = link->handle] { ConnectSynchronous(handle); });
                     });
}

// No classic neighbour connects by itself: there is never one to let in or to turn away.
void Connections::AddIncoming(CommandTable* table) {
  constexpr Range kReason = Byte(kAddressSize, 0x0D, 0x0F);
  auto nobody = [](const Bytes&) { return Answer::Status(kUnknownConnection); };
  table->AddByStatus(kAcceptConnection, {1, 0}, {7, {Flag(kAddressSize)}}, nobody);
  table->AddByStatus(kRejectConnection, {1, 1}, {7, {kReason}}, nobody);
  table->AddByStatus(
      kAcceptSynchronousConnection, {16, 4},
      {21, {Word(14, 4, 0xFFFF), Word(16, 0, 0x3FF)}, [](const Bytes& p) { return p[18] <= 2 || p[18] == 0xFF; }},
      nobody);
  table->AddByStatus(kRejectSynchronousConnection, {16, 5}, {7, {kReason}}, nobody);
}

void Connections::ConnectClassic(const Bytes& peer) {
  const bool there = FindClassic(peer) != nullptr;
  outlet_->timers().After(there ? kConnectsIn : kPagesFor, [this, there, page = ++pages_] {
    if (page == pages_ && !paging_.empty()) CompleteClassic(there ? kSuccess : kPageTimeout);
  });
}

//   status | handle | address | link type | encryption
void Connections::CompleteClassic(uint8_t status) {
  const Bytes peer = std::exchange(paging_, {});
  uint16_t handle = 0;
  if (status == kSuccess) {
    Link& link = NewLink(LinkKind::kClassic, *FindClassic(peer), {0, identity_->address});
    link.policy = GetLe16(settings_->Value(kWriteDefaultLinkPolicy).data());
    handle = link.handle;
  }
  Bytes event{status};
  Put16(event, handle);
  PutAll(event, peer);
  PutAll(event, {kAclLink, 0x00});
  outlet_->SendEvent(kConnectionCompleteEvent, event);
}

//   status | handle | address | link type | interval | window | lengths received and sent, 16 bits each | air mode
void Connections::ConnectSynchronous(uint16_t handle) {
  constexpr uint8_t kCvsd = 0x02;
  const Link* const link = links_->Find(handle);
  if (link == nullptr) return;
  const Bytes peer = link->peer;
  Bytes event{kSuccess};
  Put16(event, links_->Add(LinkKind::kSynchronous, peer).handle);
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
