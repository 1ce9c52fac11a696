// How a low-energy neighbour pairs: with whoever asks, since it has neither keys nor a display, and with the elliptic
// curve where the host knows it. It keeps the key if the host wants to keep it too.
#pragma once

#include <optional>

#include "sim/crypto/p256.h"
#include "sim/neighbours/peer.h"

namespace bthal::sim {

class Pairing {
 public:
  // Outlives it.
  explicit Pairing(const PeersLink* link) : link_(link) {}

  // Takes one message; what it answers, in order.
  std::vector<Bytes> Receive(const Bytes& message);
  // Empty if there is no key of this name.
  Bytes KeyFor(const Bytes& name) const;
  // The link is encrypted; gives the keys that a pairing under way hands out now.
  std::vector<Bytes> Encrypted();

 private:
  enum class Step { kIdle, kPublicKey, kConfirm, kRandom, kCheck, kEncrypt };

  std::vector<Bytes> Request(const Bytes& message);
  std::vector<Bytes> PublicKey(const Bytes& message);
  std::vector<Bytes> Confirm(const Bytes& value);
  std::vector<Bytes> Random(const Bytes& value);
  std::vector<Bytes> Check(const Bytes& value);
  std::vector<Bytes> Fail(uint8_t reason);
  // What is agreed on, for the host's random number or this end's.
  Bytes LegacyConfirm(const Bytes& random) const;

  const PeersLink* const link_;
  Step step_ = Step::kIdle;
  Bytes request_;
  Bytes response_;
  bool secure_ = false;  // with the elliptic curve
  std::optional<P256Key> key_;
  Bytes hosts_public_;
  Bytes shared_;
  Bytes hosts_confirm_;
  Bytes hosts_random_;
  Bytes random_;
  Bytes session_key_;  // for this connection, until a better one is known
};

}  // namespace bthal::sim
