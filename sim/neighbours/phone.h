// The phone around the board: it connects to a host that advertises, asks for its name, tells of itself, and pairs if
// the host wants to. Unlike those that are found it leads: it decides when to encrypt.
#pragma once

#include "sim/neighbours/attributes.h"
#include "sim/neighbours/peer.h"

namespace bthal::sim {

class PhoneEnd : public Peer {
 public:
  explicit PhoneEnd(PeersLink link) : link_(std::move(link)), attributes_(Phone(), &link_) {}

  void Begin() override;
  void Receive(uint16_t channel, const Bytes& payload) override;
  Bytes KeyFor(const Bytes& name) const override;

 private:
  bool EncryptAsBefore();
  // Messages of a pairing, in which the phone shows and asks nothing. Without the elliptic curve: a host can do both.
  void Pair(const Bytes& message);
  void Request();
  void Check(const Bytes& hosts_random);
  Bytes ConfirmValue(const Bytes& random) const;
  void Fail(uint8_t reason);

  const PeersLink link_;
  Attributes attributes_;
  bool tried_ = false;  // the key of an earlier connection
  Bytes request_;       // empty: no pairing is under way
  Bytes response_;      // of the host
  Bytes random_;
  Bytes hosts_confirm_;
  Bytes session_key_;
};

}  // namespace bthal::sim
