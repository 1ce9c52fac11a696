#include "sim/neighbours/pairing_messages.h"

#include "sim/crypto/aes.h"
#include "sim/crypto/p256.h"

namespace bthal::sim {
namespace {

constexpr size_t kRandomSize = 8;
constexpr size_t kDiversifierSize = 2;

}  // namespace

size_t PairingMessageSize(uint8_t code) {
  switch (code) {
    case kPairingRequest:
    case kPairingResponse:
      return 7;
    case kPairingFailed:
    case kSecurityRequest:
      return 2;
    case kEncryptionKeyName:
      return 1 + kKeyNameSize;
    case kIdentityAddress:
      return 8;
    case kPairingPublicKey:
      return 1 + 2 * kP256Size;
    case kPairingConfirm:
    case kPairingRandom:
    case kEncryptionKey:
    case kIdentityKey:
    case kSigningKey:
    case kPairingCheck:
      return 1 + kBlockSize;
    default:
      return 0;
  }
}

Bytes PairingMessage(uint8_t code, const Bytes& value) {
  Bytes message{code};
  PutAll(message, value);
  return message;
}

TypedAddress Typed(const WireAddress& address) {
  TypedAddress typed = address.address;
  Put8(typed, address.type);
  return typed;
}

//   code | diversifier | random number
Bytes KeyNameMessage(const Bytes& name) {
  Bytes message{kEncryptionKeyName};
  PutAll(message, Part(name, kRandomSize));
  PutAll(message, Part(name, 0, kRandomSize));
  return message;
}

Bytes KeyNameIn(const Bytes& message) {
  Bytes name = Part(message, 1 + kDiversifierSize);
  PutAll(name, Part(message, 1, kDiversifierSize));
  return name;
}

}  // namespace bthal::sim
