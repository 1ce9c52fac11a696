#include "sim/crypto/aes.h"

#include <nettle/aes.h>
#include <nettle/cmac.h>

namespace bthal::sim {
namespace {

Bytes Reversed(const Bytes& bytes) { return {bytes.rbegin(), bytes.rend()}; }

}  // namespace

Bytes Aes(const Bytes& key, const Bytes& block) {
  aes128_ctx context;
  aes128_set_encrypt_key(&context, Reversed(key).data());
  Bytes result = Reversed(block);
  aes128_encrypt(&context, kBlockSize, result.data(), result.data());
  return Reversed(result);
}

Bytes AesCmac(const Bytes& key, const Bytes& message) {
  cmac_aes128_ctx context;
  cmac_aes128_set_key(&context, Reversed(key).data());
  const Bytes text = Reversed(message);
  cmac_aes128_update(&context, text.size(), text.data());
  Bytes code(kBlockSize);
  cmac_aes128_digest(&context, code.size(), code.data());
  return Reversed(code);
}

}  // namespace bthal::sim
