#include "sim/neighbours/pairing.h"

#include "sim/crypto/aes.h"
#include "sim/crypto/random.h"
#include "sim/neighbours/pairing_messages.h"

namespace bthal::sim {
std::vector<Bytes> Pairing::Receive(const Bytes& message) {
  const uint8_t code = message[0];
  if (PairingMessageSize(code) == 0) return Fail(kMessageNotSupported);
  if (PairingMessageSize(code) != message.size()) return Fail(kInvalidMessage);
  const Bytes value = Part(message, 1);
  if (code == kPairingRequest) return Request(message);
  if (code == kPairingPublicKey && step_ == Step::kPublicKey) return PublicKey(value);
  if (code == kPairingConfirm && step_ == Step::kConfirm) return Confirm(value);
  if (code == kPairingRandom && step_ == Step::kRandom) return Random(value);
  if (code == kPairingCheck && step_ == Step::kCheck) return Check(value);
  // The keys that a host hands out are of no use here.
  if (code >= kEncryptionKey && code <= kSigningKey) return {};
  if (code != kPairingFailed) return Fail(kUnspecifiedReason);
  step_ = Step::kIdle;
  return {};
}

std::vector<Bytes> Pairing::Fail(uint8_t reason) {
  step_ = Step::kIdle;
  return {{kPairingFailed, reason}};
}

std::vector<Bytes> Pairing::Request(const Bytes& message) {
  constexpr uint8_t kInitiatorsKeys = 0x03;
  if (message[4] < kBlockSize) return Fail(kKeyTooShort);
  request_ = message;
  secure_ = (message[3] & kSecurePairing) != 0;
  const auto requirements = static_cast<uint8_t>(message[3] & (kBonding | kSecurePairing));
  const auto responders_keys = static_cast<uint8_t>(secure_ ? 0 : message[6] & kOwnEncryptionKey);
  response_ = {kPairingResponse, kShowsNothing, 0,
               requirements,     kBlockSize,    static_cast<uint8_t>(message[5] & kInitiatorsKeys),
               responders_keys};
  step_ = secure_ ? Step::kPublicKey : Step::kConfirm;
  return {response_};
}

std::vector<Bytes> Pairing::PublicKey(const Bytes& value) {
  key_.emplace();
  const std::optional<Bytes> shared = key_->Shared(value);
  if (!shared) return Fail(kInvalidMessage);
  shared_ = *shared;
  hosts_public_ = Part(value, 0, kP256Size);
  random_ = RandomBytes(kBlockSize);
  step_ = Step::kRandom;
  const Bytes own = key_->Public();
  return {PairingMessage(kPairingPublicKey, own),
          PairingMessage(kPairingConfirm, SecureConfirmValue(Part(own, 0, kP256Size), hosts_public_, random_))};
}

Bytes Pairing::LegacyConfirm(const Bytes& random) const {
  return LegacyConfirmValue(random, request_, response_, Typed(link_->host), Typed(link_->own));
}

std::vector<Bytes> Pairing::Confirm(const Bytes& value) {
  hosts_confirm_ = value;
  random_ = RandomBytes(kBlockSize);
  step_ = Step::kRandom;
  return {PairingMessage(kPairingConfirm, LegacyConfirm(random_))};
}

std::vector<Bytes> Pairing::Random(const Bytes& value) {
  hosts_random_ = value;
  if (secure_) {
    step_ = Step::kCheck;
  } else {
    if (LegacyConfirm(value) != hosts_confirm_) return Fail(kConfirmValueFailed);
    session_key_ = LegacySessionKey(random_, value);
    step_ = Step::kEncrypt;
  }
  return {PairingMessage(kPairingRandom, random_)};
}

std::vector<Bytes> Pairing::Check(const Bytes& value) {
  const TypedAddress host = Typed(link_->host);
  const TypedAddress own = Typed(link_->own);
  const SecureKeys keys = DeriveKeys(shared_, hosts_random_, random_, host, own);
  if (value != CheckValue(keys.check, hosts_random_, random_, Part(request_, 1, 3), host, own)) {
    return Fail(kCheckFailed);
  }
  session_key_ = keys.long_term;
  step_ = Step::kEncrypt;
  return {
      PairingMessage(kPairingCheck, CheckValue(keys.check, random_, hosts_random_, Part(response_, 1, 3), own, host))};
}

// The key of the connection itself has a name of zeros; so has one that was agreed on with the elliptic curve.
Bytes Pairing::KeyFor(const Bytes& name) const {
  if (step_ == Step::kEncrypt && name == Bytes(kKeyNameSize, 0)) return session_key_;
  const Memory& memory = *link_->memory;
  return name == memory.key_name ? memory.long_term_key : Bytes{};
}

std::vector<Bytes> Pairing::Encrypted() {
  if (step_ != Step::kEncrypt) return {};
  step_ = Step::kIdle;
  Memory& memory = *link_->memory;
  const bool bonds = (response_[3] & kBonding) != 0;
  if (secure_) {
    if (bonds) memory = {Bytes(kKeyNameSize, 0), session_key_, memory.link_key};
    return {};
  }
  if (response_[6] == 0) return {};
  memory = {RandomBytes(kKeyNameSize), RandomBytes(kBlockSize), memory.link_key};
  return {PairingMessage(kEncryptionKey, memory.long_term_key), KeyNameMessage(memory.key_name)};
}

}  // namespace bthal::sim
