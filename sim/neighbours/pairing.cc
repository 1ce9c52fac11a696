#include "sim/neighbours/pairing.h"

#include "sim/crypto/aes.h"
#include "sim/crypto/random.h"
#include "sim/neighbours/pairing_functions.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kRequest = 0x01;
constexpr uint8_t kResponse = 0x02;
constexpr uint8_t kConfirm = 0x03;
constexpr uint8_t kRandom = 0x04;
constexpr uint8_t kFailed = 0x05;
constexpr uint8_t kEncryptionKey = 0x06;
constexpr uint8_t kEncryptionKeyName = 0x07;
constexpr uint8_t kPublicKey = 0x0C;
constexpr uint8_t kCheck = 0x0D;

constexpr uint8_t kConfirmFailed = 0x04;
constexpr uint8_t kKeyTooShort = 0x06;
constexpr uint8_t kCommandNotSupported = 0x07;
constexpr uint8_t kUnspecified = 0x08;
constexpr uint8_t kInvalid = 0x0A;
constexpr uint8_t kCheckFailed = 0x0B;

constexpr uint8_t kBonding = 0x01;
constexpr uint8_t kSecure = 0x08;
constexpr size_t kRequestSize = 7;
constexpr size_t kKeyNameSize = 10;

Bytes Message(uint8_t code, const Bytes& value) {
  Bytes message{code};
  PutAll(message, value);
  return message;
}

TypedAddress Typed(const WireAddress& address) {
  TypedAddress typed = address.address;
  Put8(typed, address.type);
  return typed;
}

size_t SizeOf(uint8_t code) {
  switch (code) {
    case kRequest:
      return kRequestSize;
    case kPublicKey:
      return 1 + 2 * kP256Size;
    default:
      return 1 + kBlockSize;
  }
}

}  // namespace

std::vector<Bytes> Pairing::Receive(const Bytes& message) {
  const uint8_t code = message[0];
  if (code == kFailed) {
    step_ = Step::kIdle;
    return {};
  }
  const bool known = code == kRequest || code == kConfirm || code == kRandom || code == kPublicKey || code == kCheck;
  // The keys that a host hands out are of no use here.
  if (!known) return code > kFailed && code < kPublicKey ? std::vector<Bytes>{} : Fail(kCommandNotSupported);
  if (message.size() != SizeOf(code)) return Fail(kInvalid);
  const Bytes value = Part(message, 1);
  if (code == kRequest) return Request(message);
  if (code == kPublicKey && step_ == Step::kPublicKey) return PublicKey(value);
  if (code == kConfirm && step_ == Step::kConfirm) return Confirm(value);
  if (code == kRandom && step_ == Step::kRandom) return Random(value);
  if (code == kCheck && step_ == Step::kCheck) return Check(value);
  return Fail(kUnspecified);
}

std::vector<Bytes> Pairing::Fail(uint8_t reason) {
  step_ = Step::kIdle;
  return {{kFailed, reason}};
}

//   code | what it can show and ask | data from elsewhere | requirements | longest key | keys of either end
std::vector<Bytes> Pairing::Request(const Bytes& message) {
  constexpr uint8_t kNothing = 3;
  constexpr uint8_t kInitiatorsKeys = 0x03;
  constexpr uint8_t kEncryption = 0x01;
  if (message[4] < kBlockSize) return Fail(kKeyTooShort);
  request_ = message;
  secure_ = (message[3] & kSecure) != 0;
  const auto requirements = static_cast<uint8_t>(message[3] & (kBonding | kSecure));
  const auto responders_keys = static_cast<uint8_t>(secure_ ? 0 : message[6] & kEncryption);
  response_ = {kResponse,      kNothing,   0,
               requirements,   kBlockSize, static_cast<uint8_t>(message[5] & kInitiatorsKeys),
               responders_keys};
  step_ = secure_ ? Step::kPublicKey : Step::kConfirm;
  return {response_};
}

std::vector<Bytes> Pairing::PublicKey(const Bytes& value) {
  key_.emplace();
  const std::optional<Bytes> shared = key_->Shared(value);
  if (!shared) return Fail(kInvalid);
  shared_ = *shared;
  hosts_public_ = Part(value, 0, kP256Size);
  random_ = RandomBytes(kBlockSize);
  step_ = Step::kRandom;
  const Bytes own = key_->Public();
  return {Message(kPublicKey, own),
          Message(kConfirm, SecureConfirmValue(Part(own, 0, kP256Size), hosts_public_, random_))};
}

Bytes Pairing::LegacyConfirm(const Bytes& random) const {
  return LegacyConfirmValue(random, request_, response_, Typed(link_->host), Typed(link_->own));
}

std::vector<Bytes> Pairing::Confirm(const Bytes& value) {
  hosts_confirm_ = value;
  random_ = RandomBytes(kBlockSize);
  step_ = Step::kRandom;
  return {Message(kConfirm, LegacyConfirm(random_))};
}

std::vector<Bytes> Pairing::Random(const Bytes& value) {
  hosts_random_ = value;
  if (secure_) {
    step_ = Step::kCheck;
  } else {
    if (LegacyConfirm(value) != hosts_confirm_) return Fail(kConfirmFailed);
    session_key_ = LegacySessionKey(random_, value);
    step_ = Step::kEncrypt;
  }
  return {Message(kRandom, random_)};
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
  return {Message(kCheck, CheckValue(keys.check, random_, hosts_random_, Part(response_, 1, 3), own, host))};
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
  //   diversifier | random number
  Bytes name = Part(memory.key_name, 8);
  PutAll(name, Part(memory.key_name, 0, 8));
  return {Message(kEncryptionKey, memory.long_term_key), Message(kEncryptionKeyName, name)};
}

}  // namespace bthal::sim
