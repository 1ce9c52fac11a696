#include "sim/neighbours/phone.h"

#include "sim/crypto/aes.h"
#include "sim/crypto/random.h"
#include "sim/neighbours/pairing_messages.h"

namespace bthal::sim {
namespace {

constexpr uint16_t kAttributes = 4;
constexpr uint16_t kPairing = 6;
// A host that has just heard of the connection still makes room for it.
constexpr auto kAsksIn = std::chrono::milliseconds(100);
const Bytes kNoName(kKeyNameSize, 0);

}  // namespace

//   opcode | first and last handle | the device's name
void PhoneEnd::Begin() {
  link_.later(kAsksIn, [this] {
    constexpr uint8_t kReadByType = 0x08;
    link_.send(kAttributes, {kReadByType, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x2A});
    EncryptAsBefore();
  });
}

// Whether there is a key from an earlier connection to try; once, in case the host has lost it.
bool PhoneEnd::EncryptAsBefore() {
  if (tried_ || link_.memory->long_term_key.empty()) return false;
  tried_ = true;
  link_.encrypt(link_.memory->key_name);
  return true;
}

void PhoneEnd::Receive(uint16_t channel, const Bytes& payload) {
  if (payload.empty()) return;
  if (channel == kPairing) Pair(payload);
  if (channel != kAttributes) return;
  const Bytes answer = attributes_.Answer(payload);
  if (!answer.empty()) link_.send(kAttributes, answer);
}

void PhoneEnd::Pair(const Bytes& message) {
  const uint8_t code = message[0];
  if (message.size() != PairingMessageSize(code)) return Fail(kInvalidMessage);
  if (code == kSecurityRequest) {
    if (!EncryptAsBefore()) Request();
    return;
  }
  if (request_.empty()) return Fail(kUnspecifiedReason);
  switch (code) {
    case kPairingResponse:
      response_ = message;
      return link_.send(kPairing, PairingMessage(kPairingConfirm, ConfirmValue(random_)));
    case kPairingConfirm:
      hosts_confirm_ = Part(message, 1);
      return link_.send(kPairing, PairingMessage(kPairingRandom, random_));
    case kPairingRandom:
      return Check(Part(message, 1));
    case kEncryptionKey:
      link_.memory->long_term_key = Part(message, 1);
      return;
    case kEncryptionKeyName:
      link_.memory->key_name = KeyNameIn(message);
      return;
    case kPairingFailed:
      return request_.clear();
    default:
      return Fail(kMessageNotSupported);
  }
}

void PhoneEnd::Fail(uint8_t reason) {
  request_.clear();
  link_.send(kPairing, {kPairingFailed, reason});
}

void PhoneEnd::Request() {
  tried_ = true;
  request_ = {kPairingRequest, kShowsNothing, 0, kBonding, kBlockSize, 0, kOwnEncryptionKey};
  random_ = RandomBytes(kBlockSize);
  session_key_.clear();
  link_.send(kPairing, request_);
}

Bytes PhoneEnd::ConfirmValue(const Bytes& random) const {
  return LegacyConfirmValue(random, request_, response_, Typed(link_.own), Typed(link_.host));
}

void PhoneEnd::Check(const Bytes& hosts_random) {
  if (response_.empty() || ConfirmValue(hosts_random) != hosts_confirm_) return Fail(kConfirmValueFailed);
  session_key_ = LegacySessionKey(hosts_random, random_);
  link_.encrypt(kNoName);
}

Bytes PhoneEnd::KeyFor(const Bytes& name) const {
  if (name == kNoName) return session_key_;
  return name == link_.memory->key_name ? link_.memory->long_term_key : Bytes{};
}

}  // namespace bthal::sim
