// The messages of a pairing: a code and what belongs to it.
#pragma once

#include "sim/neighbours/pairing_functions.h"
#include "sim/neighbours/peer.h"

namespace bthal::sim {

inline constexpr uint8_t kPairingRequest = 0x01;
inline constexpr uint8_t kPairingResponse = 0x02;
inline constexpr uint8_t kPairingConfirm = 0x03;
inline constexpr uint8_t kPairingRandom = 0x04;
inline constexpr uint8_t kPairingFailed = 0x05;
inline constexpr uint8_t kEncryptionKey = 0x06;
inline constexpr uint8_t kEncryptionKeyName = 0x07;
inline constexpr uint8_t kIdentityKey = 0x08;
inline constexpr uint8_t kIdentityAddress = 0x09;
inline constexpr uint8_t kSigningKey = 0x0A;
inline constexpr uint8_t kSecurityRequest = 0x0B;
inline constexpr uint8_t kPairingPublicKey = 0x0C;
inline constexpr uint8_t kPairingCheck = 0x0D;

// Why one fails.
inline constexpr uint8_t kConfirmValueFailed = 0x04;
inline constexpr uint8_t kKeyTooShort = 0x06;
inline constexpr uint8_t kMessageNotSupported = 0x07;
inline constexpr uint8_t kUnspecifiedReason = 0x08;
inline constexpr uint8_t kInvalidMessage = 0x0A;
inline constexpr uint8_t kCheckFailed = 0x0B;

// Requests and responses:
//   code | what it can show and ask | data from elsewhere | requirements | longest key | keys of either end
inline constexpr uint8_t kShowsNothing = 0x03;
inline constexpr uint8_t kBonding = 0x01;
inline constexpr uint8_t kSecurePairing = 0x08;
inline constexpr uint8_t kOwnEncryptionKey = 0x01;

// A random number and a diversifier.
inline constexpr size_t kKeyNameSize = 10;

// The size of the whole message; 0 if its code is unknown.
size_t PairingMessageSize(uint8_t code);
Bytes PairingMessage(uint8_t code, const Bytes& value);
TypedAddress Typed(const WireAddress& address);
// The message that hands out a key's name, and the name in one.
Bytes KeyNameMessage(const Bytes& name);
Bytes KeyNameIn(const Bytes& message);

}  // namespace bthal::sim
