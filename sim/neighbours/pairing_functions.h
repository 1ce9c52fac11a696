// The functions by which both ends of a pairing prove that they agree, and derive keys. All numbers are in the order of
// the wire, least significant byte first.
#pragma once

#include "sim/base/bytes.h"

namespace bthal::sim {

// Seven bytes: an address and its type.
using TypedAddress = Bytes;

// Without the elliptic curve: what is confirmed, and the key for the connection. Nobody shares a secret beforehand.
Bytes LegacyConfirmValue(const Bytes& random, const Bytes& request, const Bytes& response,
                         const TypedAddress& initiator, const TypedAddress& responder);
Bytes LegacySessionKey(const Bytes& responders_random, const Bytes& initiators_random);

// With it, of the first number of each public key.
Bytes SecureConfirmValue(const Bytes& own_public, const Bytes& others_public, const Bytes& random);
struct SecureKeys {
  Bytes check;
  Bytes long_term;
};
SecureKeys DeriveKeys(const Bytes& shared, const Bytes& initiators_random, const Bytes& responders_random,
                      const TypedAddress& initiator, const TypedAddress& responder);
// `capabilities` are three bytes of the request or the response, `own` and `other` of whoever proves.
Bytes CheckValue(const Bytes& check_key, const Bytes& own_random, const Bytes& others_random, const Bytes& capabilities,
                 const TypedAddress& own, const TypedAddress& other);

}  // namespace bthal::sim
