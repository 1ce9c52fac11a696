// A low-energy neighbour that was found, at the other end of a connection: it tells of itself, pairs, and its battery
// runs down.
#pragma once

#include "sim/neighbours/attributes.h"
#include "sim/neighbours/pairing.h"
#include "sim/neighbours/peer.h"

namespace bthal::sim {

class Peripheral : public Peer {
 public:
  Peripheral(const Neighbour& neighbour, PeersLink link)
      : link_(std::move(link)), attributes_(neighbour, &link_), pairing_(&link_) {}

  void Begin() override;
  void Receive(uint16_t channel, const Bytes& payload) override;
  Bytes KeyFor(const Bytes& name) const override { return pairing_.KeyFor(name); }
  void Encrypted() override;

 private:
  void Drain();

  const PeersLink link_;
  Attributes attributes_;
  Pairing pairing_;
  bool drains_ = false;  // the battery tells of itself
};

}  // namespace bthal::sim
