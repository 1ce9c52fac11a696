#include "sim/controller/link/security_le.h"

#include <utility>

#include "sim/controller/opcodes.h"
#include "sim/crypto/aes.h"

namespace bthal::sim {
namespace {

constexpr size_t kHandleSize = 2;
constexpr size_t kKeyNameSize = 10;

}  // namespace

//   handle | random number, 64 bits | diversifier, 16 bits | key
void LeSecurity::AddTo(CommandTable* table) {
  table->AddByStatus(kLeEnableEncryption, {28, 0}, {kHandleSize + kKeyNameSize + kBlockSize}, [this](const Bytes& p) {
    const Link* const link = links_->Find(GetLe16(p.data()));
    if (link != nullptr && (link->kind != LinkKind::kLowEnergy || link->role != Role::kCentral)) {
      return Answer::Status(kCommandDisallowed);
    }
    return links_->ForLink(p, [this](Link& there, const Bytes& asked) {
      Start(there, Part(asked, kHandleSize, kKeyNameSize), Part(asked, kHandleSize + kKeyNameSize));
    });
  });
  table->Add(kLeLongTermKeyReply, {28, 1}, {kHandleSize + kBlockSize},
             [this](const Bytes& p) { return ReplyToNeighbour(p); });
  table->Add(kLeLongTermKeyNegativeReply, {28, 2}, {kHandleSize},
             [this](const Bytes& p) { return ReplyToNeighbour(p); });
}

//   handle [| key]; without it the link stays as it is
Answer LeSecurity::ReplyToNeighbour(const Bytes& parameters) {
  Answer answer = links_->OfLink(parameters, {});
  Link* const link = links_->Find(GetLe16(parameters.data()));
  if (link == nullptr) return answer;
  const Bytes name = std::exchange(link->asked_for_key, {});
  if (name.empty()) {
    answer.parameters[0] = kCommandDisallowed;
  } else if (parameters.size() > kHandleSize) {
    answer.then = [this, handle = link->handle, name, key = Part(parameters, kHandleSize)] {
      if (Link* there = links_->Find(handle)) Start(*there, name, key);
    };
  }
  return answer;
}

void LeSecurity::Start(Link& link, const Bytes& name, const Bytes& hosts_key) {
  const Bytes key = link.peers_end->KeyFor(name);
  if (key.empty()) {
    Tell(link, kKeyMissing, false);
  } else if (key != hosts_key) {
    // Neither end understands the other from now on.
    connections_->End(link.handle, kIntegrityFailure);
  } else {
    const bool refreshed = std::exchange(link.encrypted, true);
    Tell(link, kSuccess, refreshed);
    const std::shared_ptr<Peer> peers_end = link.peers_end;
    peers_end->Encrypted();
  }
}

//   status | handle [| on]
void LeSecurity::Tell(const Link& link, uint8_t status, bool refreshed) {
  Bytes event{status};
  Put16(event, link.handle);
  if (!refreshed) Put8(event, link.encrypted ? 1 : 0);
  outlet_->SendEvent(refreshed ? kEncryptionRefreshEvent : kEncryptionChangeEvent, event);
}

}  // namespace bthal::sim
