// The phone around the board: it connects to a host that advertises, and asks for its name.
#pragma once

#include "sim/neighbours/peer.h"

namespace bthal::sim {

class PhoneEnd : public Peer {
 public:
  explicit PhoneEnd(PeersLink link) : link_(std::move(link)) {}

  void Begin() override;
  void Receive(uint16_t channel, const Bytes& payload) override;

 private:
  const PeersLink link_;
};

}  // namespace bthal::sim
