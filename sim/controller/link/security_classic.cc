#include "sim/controller/link/security_classic.h"

#include <utility>

#include "sim/controller/opcodes.h"
#include "sim/crypto/aes.h"
#include "sim/crypto/random.h"

namespace bthal::sim {
namespace {

constexpr size_t kAddressSize = 6;
constexpr uint32_t kPasskeys = 1000000;

}  // namespace

void ClassicSecurity::AddTo(CommandTable* table) {
  AddKeys(table);
  AddSimplePairing(table);
  AddNeverAsked(table);
  table->AddByStatus(kAuthenticationRequested, {1, 7}, {2}, [this](const Bytes& p) {
    const Link* const link = links_->Find(GetLe16(p.data()));
    const bool pairs = pairing_ && links_->Find(pairing_->handle) != nullptr;
    if (pairs || (link != nullptr && link->kind != LinkKind::kClassic)) return Answer::Status(kCommandDisallowed);
    return links_->ForLink(p, [this](const Link& there, const Bytes&) { Authenticate(there); });
  });
  table->AddByStatus(kSetConnectionEncryption, {2, 0}, {3, {Flag(2)}}, [this](const Bytes& p) {
    const Link* const link = links_->Find(GetLe16(p.data()));
    if (link != nullptr && link->kind != LinkKind::kClassic) return Answer::Status(kCommandDisallowed);
    return links_->ForLink(p, [this](Link& there, const Bytes& asked) { SetEncryption(there, asked[2] != 0); });
  });
  table->Add(kReadEncryptionKeySize, {20, 4}, {2}, [this](const Bytes& p) {
    const Link* const link = links_->Find(GetLe16(p.data()));
    Answer answer = links_->OfLink(p, {kBlockSize});
    if (link != nullptr && !link->encrypted) answer.parameters = {kInsufficientSecurity, p[0], p[1], 0};
    return answer;
  });
}

void ClassicSecurity::AddReply(CommandTable* table, uint16_t opcode, MaskBit listed, Form form, Asked asked,
                               Then then) {
  table->Add(opcode, listed, std::move(form), [this, asked, then = std::move(then)](const Bytes& p) {
    const Bytes peer = Part(p, 0, kAddressSize);
    const bool owed =
        pairing_ && pairing_->asked == asked && pairing_->peer == peer && links_->Find(pairing_->handle) != nullptr;
    Bytes parameters{owed ? kSuccess : kCommandDisallowed};
    PutAll(parameters, peer);
    Answer answer = Answer::Complete(parameters);
    if (owed) answer.then = [then, p] { then(p); };
    return answer;
  });
}

void ClassicSecurity::AddKeys(CommandTable* table) {
  AddReply(table, kLinkKeyReply, {1, 2}, {kAddressSize + kBlockSize}, Asked::kLinkKey,
           [this](const Bytes& p) { CheckLinkKey(Part(p, kAddressSize)); });
  AddReply(table, kLinkKeyNegativeReply, {1, 3}, {kAddressSize}, Asked::kLinkKey, [this](const Bytes&) {
    const bool simple = settings_->Value(kWriteSimplePairingMode)[0] != 0;
    Ask(simple ? Asked::kIoCapability : Asked::kPinCode, simple ? kIoCapabilityRequestEvent : kPinCodeRequestEvent);
  });
  AddReply(table, kPinCodeReply, {1, 4}, {kAddressSize + 1 + kBlockSize, {Byte(kAddressSize, 1, kBlockSize)}},
           Asked::kPinCode, [this](const Bytes& p) { CheckPinCode(p); });
  AddReply(table, kPinCodeNegativeReply, {1, 5}, {kAddressSize}, Asked::kPinCode,
           [this](const Bytes&) { Finish(kKeyMissing); });
}

//   address | what the host can show and ask | data from elsewhere | what it requires
void ClassicSecurity::AddSimplePairing(CommandTable* table) {
  AddReply(table, kIoCapabilityReply, {18, 7}, {9, {Byte(6, 0, 3), Flag(7), Byte(8, 0, 5)}}, Asked::kIoCapability,
           [this](const Bytes&) { AskToConfirm(); });
  AddReply(table, kIoCapabilityNegativeReply, {20, 3}, {kAddressSize + 1}, Asked::kIoCapability,
           [this](const Bytes&) { Refused(); });
  AddReply(table, kUserConfirmationReply, {19, 0}, {kAddressSize}, Asked::kConfirmation,
           [this](const Bytes&) { Confirmed(); });
  AddReply(table, kUserConfirmationNegativeReply, {19, 1}, {kAddressSize}, Asked::kConfirmation,
           [this](const Bytes&) { Refused(); });
}

// With neighbours that can show nothing there are no passkeys, and none has data from elsewhere.
void ClassicSecurity::AddNeverAsked(CommandTable* table) {
  auto never = [](const Bytes& p) {
    Bytes answer{kCommandDisallowed};
    PutAll(answer, Part(p, 0, kAddressSize));
    return Answer::Complete(answer);
  };
  table->Add(kUserPasskeyReply, {19, 2}, {10, {{kAddressSize, 4, 0, kPasskeys - 1}}}, never);
  table->Add(kUserPasskeyNegativeReply, {19, 3}, {kAddressSize}, never);
  table->Add(kRemoteOobReply, {19, 4}, {kAddressSize + 2 * kBlockSize}, never);
  table->Add(kRemoteOobNegativeReply, {19, 7}, {kAddressSize}, never);
}

void ClassicSecurity::Authenticate(const Link& link) {
  pairing_ = {link.handle, link.peer, Asked::kLinkKey};
  Ask(Asked::kLinkKey, kLinkKeyRequestEvent);
}

//   address | more
void ClassicSecurity::Ask(Asked asked, uint8_t event, const Bytes& more) {
  pairing_->asked = asked;
  Bytes parameters = pairing_->peer;
  PutAll(parameters, more);
  outlet_->SendEvent(event, parameters);
}

void ClassicSecurity::CheckLinkKey(const Bytes& key) {
  const Bytes& known = (*memories_)[pairing_->peer].link_key;
  Finish(known.empty() ? kKeyMissing : known == key ? kSuccess : kAuthenticationFailure);
}

//   address | length | PIN
void ClassicSecurity::CheckPinCode(const Bytes& parameters) {
  static const Bytes kNeighboursPin{'0', '0', '0', '0'};
  if (Part(parameters, kAddressSize + 1, parameters[kAddressSize]) != kNeighboursPin) {
    Finish(kAuthenticationFailure);
    return;
  }
  constexpr uint8_t kCombination = 0;
  GiveLinkKey(kCombination);
  Finish(kSuccess);
}

// Both ends compute the same number; where one cannot show it, its host is to agree without a look.
void ClassicSecurity::AskToConfirm() {
  constexpr uint8_t kNothing = 3;
  constexpr uint8_t kGeneralBonding = 4;
  Ask(Asked::kConfirmation, kIoCapabilityResponseEvent, {kNothing, 0, kGeneralBonding});
  Bytes number;
  Put32(number, GetLe32(RandomBytes(4).data()) % kPasskeys);
  Ask(Asked::kConfirmation, kUserConfirmationRequestEvent, number);
}

void ClassicSecurity::Confirmed() {
  constexpr uint8_t kUnauthenticated = 4;
  Bytes complete{kSuccess};
  PutAll(complete, pairing_->peer);
  outlet_->SendEvent(kSimplePairingCompleteEvent, complete);
  GiveLinkKey(kUnauthenticated);
  Finish(kSuccess);
}

void ClassicSecurity::Refused() {
  Bytes complete{kAuthenticationFailure};
  PutAll(complete, pairing_->peer);
  outlet_->SendEvent(kSimplePairingCompleteEvent, complete);
  Finish(kAuthenticationFailure);
}

//   address | key | type
void ClassicSecurity::GiveLinkKey(uint8_t type) {
  Bytes& key = (*memories_)[pairing_->peer].link_key;
  key = RandomBytes(kBlockSize);
  Bytes event = pairing_->peer;
  PutAll(event, key);
  Put8(event, type);
  outlet_->SendEvent(kLinkKeyNotificationEvent, event);
}

//   status | handle
void ClassicSecurity::Finish(uint8_t status) {
  const uint16_t handle = pairing_->handle;
  pairing_.reset();
  Link* const link = links_->Find(handle);
  if (link == nullptr) return;
  link->authenticated = status == kSuccess;
  Bytes event{status};
  Put16(event, handle);
  outlet_->SendEvent(kAuthenticationCompleteEvent, event);
}

//   status | handle | on
void ClassicSecurity::SetEncryption(Link& link, bool on) {
  const uint8_t status = on && !link.authenticated ? kKeyMissing : kSuccess;
  if (status == kSuccess) link.encrypted = on;
  Bytes event{status};
  Put16(event, link.handle);
  Put8(event, link.encrypted ? 1 : 0);
  outlet_->SendEvent(kEncryptionChangeEvent, event);
}

}  // namespace bthal::sim
