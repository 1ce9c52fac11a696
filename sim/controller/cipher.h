// What the controller computes for the host: ciphers, keys and random numbers.
#pragma once

#include <memory>

#include "sim/controller/command_table.h"
#include "sim/controller/outlet.h"
#include "sim/crypto/p256.h"

namespace bthal::sim {

class Cipher {
 public:
  // Outlives it.
  explicit Cipher(Outlet* outlet) : outlet_(outlet) {}

  void AddTo(CommandTable* table);
  void Reset() { key_.reset(); }

 private:
  Answer MakeKey();
  Answer Agree(const Bytes& others_public);

  Outlet* const outlet_;
  std::unique_ptr<P256Key> key_;  // the one that the host was told last; null: none yet
};

}  // namespace bthal::sim
