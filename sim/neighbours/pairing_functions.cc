#include "sim/neighbours/pairing_functions.h"

#include <initializer_list>

#include "sim/crypto/aes.h"

namespace bthal::sim {
namespace {

constexpr size_t kAddressSize = 6;
constexpr size_t kHalf = kBlockSize / 2;

const Bytes kNoSecret(kBlockSize, 0);

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes joined;
  for (const Bytes& part : parts) PutAll(joined, part);
  return joined;
}

Bytes Xor(Bytes one, const Bytes& other) {
  for (size_t i = 0; i < one.size(); ++i) one[i] ^= other[i];
  return one;
}

}  // namespace

Bytes LegacyConfirmValue(const Bytes& random, const Bytes& request, const Bytes& response,
                         const TypedAddress& initiator, const TypedAddress& responder) {
  const Bytes first = Joined({Part(initiator, kAddressSize), Part(responder, kAddressSize), request, response});
  const Bytes second = Joined({Part(responder, 0, kAddressSize), Part(initiator, 0, kAddressSize), Bytes(4, 0)});
  return Aes(kNoSecret, Xor(Aes(kNoSecret, Xor(random, first)), second));
}

Bytes LegacySessionKey(const Bytes& responders_random, const Bytes& initiators_random) {
  return Aes(kNoSecret, Joined({Part(initiators_random, 0, kHalf), Part(responders_random, 0, kHalf)}));
}

Bytes SecureConfirmValue(const Bytes& own_public, const Bytes& others_public, const Bytes& random) {
  return AesCmac(random, Joined({{0}, others_public, own_public}));
}

SecureKeys DeriveKeys(const Bytes& shared, const Bytes& initiators_random, const Bytes& responders_random,
                      const TypedAddress& initiator, const TypedAddress& responder) {
  static const Bytes salt{0xBE, 0x83, 0x60, 0x5A, 0xDB, 0x0B, 0x37, 0x60,
                          0x38, 0xA5, 0xF5, 0xAA, 0x91, 0x83, 0x88, 0x6C};
  static const Bytes length{0x00, 0x01};
  static const Bytes purpose{'e', 'l', 't', 'b'};
  const Bytes key = AesCmac(salt, shared);
  auto derive = [&](uint8_t counter) {
    return AesCmac(key,
                   Joined({length, responder, initiator, responders_random, initiators_random, purpose, {counter}}));
  };
  return {derive(0), derive(1)};
}

Bytes CheckValue(const Bytes& check_key, const Bytes& own_random, const Bytes& others_random, const Bytes& capabilities,
                 const TypedAddress& own, const TypedAddress& other) {
  return AesCmac(check_key, Joined({other, own, capabilities, kNoSecret, others_random, own_random}));
}

}  // namespace bthal::sim
