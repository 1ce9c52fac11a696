#include "sim/controller/links.h"

#include <algorithm>

#include "sim/wire/h4.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kConnectionComplete = 0x03;
constexpr uint8_t kDisconnectionComplete = 0x05;
constexpr uint8_t kRemoteNameComplete = 0x07;
constexpr uint8_t kRemoteFeaturesComplete = 0x0B;
constexpr uint8_t kRemoteVersionComplete = 0x0C;
constexpr uint8_t kNumberOfCompletedPackets = 0x13;
constexpr uint8_t kLeMeta = 0x3E;
constexpr uint8_t kLeConnectionComplete = 0x01;
constexpr uint8_t kLeConnectionUpdateComplete = 0x03;
constexpr uint8_t kLeRemoteFeaturesComplete = 0x04;
constexpr uint8_t kLeDataLengthChange = 0x07;
constexpr uint8_t kLeEnhancedConnectionComplete = 0x0A;
constexpr uint8_t kLePhyUpdateComplete = 0x0C;

constexpr auto kConnectsIn = std::chrono::milliseconds(20);
constexpr auto kPagesFor = std::chrono::milliseconds(200);
constexpr uint16_t kHandleMask = 0x0FFF;
constexpr size_t kAclHeader = 4;
constexpr size_t kNameSize = 248;

constexpr uint8_t kPeerVersion = 0x0C;
constexpr uint16_t kNoCompany = 0xFFFF;

const Neighbour* Find(const Bytes& address, bool low_energy) {
  for (const Neighbour& neighbour : Neighbours()) {
    if (neighbour.address == address && neighbour.low_energy == low_energy) return &neighbour;
  }
  return nullptr;
}

Bytes Address(const Bytes& parameters, size_t at) {
  return {parameters.begin() + static_cast<ptrdiff_t>(at), parameters.begin() + static_cast<ptrdiff_t>(at + 6)};
}

}  // namespace

void Links::AddTo(CommandTable* table) {
  AddInquiryCommands(table);
  AddScanCommands(table);
  AddAdvertisingCommands(table);
  AddListCommands(table);
  AddConnectionCommands(table);
  AddLinkCommands(table);
}

void Links::Reset() {
  ++generation_;
  connections_.clear();
  next_handle_ = kFirstHandle;
  connecting_.reset();
  accept_list_.clear();
  scan_ = 0;
  reported_.clear();
  inquiry_ = 0;
  advertising_sets_.clear();
}

void Links::AddConnectionCommands(CommandTable* table) {
  table->AddByStatus(0x0405, 13, 0, 4, [this](const Bytes& p) {  // create connection
    return Answer::Status(kSuccess, [this, peer = Address(p, 0)] { ConnectClassic(peer); });
  });
  table->AddByStatus(0x0406, 3, 0, 5, [this](const Bytes& p) { return Disconnect(p); });
  table->AddByStatus(0x0419, 10, 2, 3, [this](const Bytes& p) {  // remote name
    return Answer::Status(kSuccess, [this, peer = Address(p, 0)] {
      const Neighbour* neighbour = Find(peer, false);
      Bytes event{neighbour == nullptr ? kPageTimeout : kSuccess};
      PutAll(event, peer);
      if (neighbour != nullptr) event.insert(event.end(), neighbour->name.begin(), neighbour->name.end());
      event.resize(1 + 6 + kNameSize);
      outlet_->SendEvent(kRemoteNameComplete, event);
    });
  });
  table->AddByStatus(0x200D, 25, 26, 4, [this](const Bytes& p) {
    constexpr size_t kPolicyAt = 4;
    if (p[kPolicyAt] != 0) return ConnectLe({0, {}, false});
    return ConnectLe({p[5], Address(p, 6), false});
  });
  table->AddByStatus(0x2043, 10, 37, 7, [this](const Bytes& p) {
    if (p[0] != 0) return ConnectLe({0, {}, true});
    return ConnectLe({p[2], Address(p, 3), true});
  });
  table->Add(0x200E, 0, 26, 5, [this](const Bytes&) { return CancelLe(); });
}

// What a host asks about, or of, a connection that is there.
void Links::AddLinkCommands(CommandTable* table) {
  auto told = [this](uint8_t code, Bytes head, Bytes tail) {
    return [this, code, head = std::move(head), tail = std::move(tail)](uint16_t handle, const Bytes&) {
      Bytes event = head;
      Put8(event, kSuccess);
      Put16(event, handle);
      PutAll(event, tail);
      outlet_->SendEvent(code, event);
    };
  };
  auto add = [&](uint16_t opcode, size_t length, int octet, int bit, auto then) {
    table->AddByStatus(opcode, length, octet, bit, [this, then](const Bytes& p) { return ForConnection(p, then); });
  };
  Bytes version{kPeerVersion};
  Put16(version, kNoCompany);
  Put16(version, 0);
  add(0x041B, 2, 2, 5, told(kRemoteFeaturesComplete, {}, Bytes(8, 0)));
  add(0x041D, 2, 2, 7, told(kRemoteVersionComplete, {}, version));
  add(0x2016, 2, 27, 5, told(kLeMeta, {kLeRemoteFeaturesComplete}, Bytes(8, 0)));
  add(0x2032, 7, 35, 6, told(kLeMeta, {kLePhyUpdateComplete}, {1, 1}));
  add(0x2013, 14, 27, 2, [this](uint16_t handle, const Bytes& p) {  // connection update: the longest interval asked for
    Bytes event{kLeConnectionUpdateComplete, kSuccess};
    Put16(event, handle);
    event.insert(event.end(), p.begin() + 4, p.begin() + 10);
    outlet_->SendEvent(kLeMeta, event);
  });
  table->Add(0x2022, 6, 33, 6, [this](const Bytes& p) {  // data length
    const uint16_t handle = GetLe16(p.data());
    const bool known = connections_.count(handle) != 0;
    Answer answer = Answer::Complete({known ? kSuccess : kUnknownConnection, p[0], p[1]});
    if (!known) return answer;
    answer.then = [this, p] {
      Bytes event{kLeDataLengthChange};
      event.insert(event.end(), p.begin(), p.begin() + 6);
      event.insert(event.end(), p.begin() + 2, p.begin() + 6);
      outlet_->SendEvent(kLeMeta, event);
    };
    return answer;
  });
  table->Add(0x1405, 2, 15, 5, [this](const Bytes& p) {  // RSSI
    constexpr uint8_t kMinus50 = 0xCE;
    const bool known = connections_.count(GetLe16(p.data())) != 0;
    return Answer::Complete({known ? kSuccess : kUnknownConnection, p[0], p[1], known ? kMinus50 : uint8_t{0}});
  });
}

Answer Links::ForConnection(const Bytes& parameters,
                            std::function<void(uint16_t handle, const Bytes& parameters)> then) {
  const uint16_t handle = GetLe16(parameters.data());
  if (connections_.count(handle) == 0) return Answer::Status(kUnknownConnection);
  return Answer::Status(kSuccess, [handle, parameters, then = std::move(then)] { then(handle, parameters); });
}

Answer Links::Disconnect(const Bytes& parameters) {
  return ForConnection(parameters, [this](uint16_t handle, const Bytes&) {
    connections_.erase(handle);
    Bytes event{kSuccess};
    Put16(event, handle);
    Put8(event, kLocalHostTerminated);
    outlet_->SendEvent(kDisconnectionComplete, event);
  });
}

void Links::ConnectClassic(const Bytes& peer) {
  const bool there = Find(peer, false) != nullptr;
  outlet_->timers().After(there ? kConnectsIn : kPagesFor, [this, peer, there, generation = generation_] {
    constexpr uint8_t kAclLink = 0x01;
    if (generation != generation_) return;
    Bytes event{there ? kSuccess : kPageTimeout};
    const uint16_t handle = there ? NewHandle() : 0;
    if (there) connections_[handle] = {peer, false};
    Put16(event, handle);
    PutAll(event, peer);
    PutAll(event, {kAclLink, 0x00});
    outlet_->SendEvent(kConnectionComplete, event);
  });
}

// An empty peer stands for whoever is on the accept list.
Answer Links::ConnectLe(Connecting wanted) {
  if (connecting_) return Answer::Status(kCommandDisallowed);
  const Neighbour* found = nullptr;
  for (const Neighbour& neighbour : Neighbours()) {
    Bytes entry{neighbour.address_type};
    PutAll(entry, neighbour.address);
    const bool meant = wanted.peer.empty() ? accept_list_.count(entry) != 0 : neighbour.address == wanted.peer;
    if (neighbour.low_energy && meant && found == nullptr) found = &neighbour;
  }
  if (found != nullptr) {
    wanted.peer = found->address;
    wanted.peer_type = found->address_type;
  }
  connecting_ = std::move(wanted);
  if (found == nullptr) return Answer::Status(kSuccess);  // until it is cancelled
  return Answer::Status(kSuccess, [this] {
    outlet_->timers().After(kConnectsIn, [this, generation = generation_] {
      if (generation == generation_ && connecting_) CompleteLe(kSuccess);
    });
  });
}

Answer Links::CancelLe() {
  if (!connecting_) return Answer::Complete({kCommandDisallowed});
  Answer answer;
  answer.then = [this] { CompleteLe(kUnknownConnection); };
  return answer;
}

//   sub-event | status | handle | role | peer type | peer [| local and peer resolvable address] | interval | latency |
//   timeout | clock accuracy
void Links::CompleteLe(uint8_t status) {
  constexpr uint8_t kCentral = 0x00;
  constexpr uint16_t kInterval = 0x0018;
  constexpr uint16_t kTimeout = 0x01F4;
  const Connecting wanted = *connecting_;
  connecting_.reset();
  const uint16_t handle = status == kSuccess ? NewHandle() : 0;
  if (status == kSuccess) connections_[handle] = {wanted.peer, true};
  Bytes event{wanted.enhanced ? kLeEnhancedConnectionComplete : kLeConnectionComplete, status};
  Put16(event, handle);
  PutAll(event, {kCentral, wanted.peer_type});
  PutAll(event, wanted.peer.empty() ? Bytes(6, 0) : wanted.peer);
  if (wanted.enhanced) event.resize(event.size() + 12);
  Put16(event, kInterval);
  Put16(event, 0);
  Put16(event, kTimeout);
  Put8(event, 0);
  outlet_->SendEvent(kLeMeta, event);
}

void Links::Data(uint8_t type, const Bytes& packet) {
  const uint16_t handle = GetLe16(packet.data()) & kHandleMask;
  const auto connection = connections_.find(handle);
  if (connection == connections_.end()) {
    outlet_->ProtocolError("data for connection " + Hex(handle, 3) + ", which does not exist");
    return;
  }
  if (type == kH4Sco) return;
  Bytes completed{1};
  Put16(completed, handle);
  Put16(completed, 1);
  outlet_->SendEvent(kNumberOfCompletedPackets, completed);
  if (type == kH4Acl && connection->second.low_energy) PeerReceives(handle, packet);
}

void Links::PeerReceives(uint16_t handle, const Bytes& packet) {
  constexpr unsigned kFirstFragment = 0x2000;
  const Bytes answer = PeerAnswer(Bytes(packet.begin() + kAclHeader, packet.end()));
  if (answer.empty()) return;
  Bytes acl;
  Put16(acl, handle | kFirstFragment);
  Put16(acl, static_cast<unsigned>(answer.size()));
  PutAll(acl, answer);
  outlet_->SendPacket(kH4Acl, acl);
}

}  // namespace bthal::sim
