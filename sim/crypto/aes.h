// AES-128 as links and pairing use it. Keys, blocks and messages are in the order of the wire, least significant byte
// first.
#pragma once

#include "sim/base/bytes.h"

namespace bthal::sim {

inline constexpr size_t kBlockSize = 16;

// `key` and `block` have kBlockSize bytes.
Bytes Aes(const Bytes& key, const Bytes& block);
// The authentication code of a message, kBlockSize bytes.
Bytes AesCmac(const Bytes& key, const Bytes& message);

}  // namespace bthal::sim
