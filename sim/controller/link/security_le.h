// Encryption of low-energy links, with the keys that host and neighbour have paired for. What crosses a link never
// leaves the board and is not enciphered; but a link counts as encrypted only where both ends have the same key.
#pragma once

#include "sim/controller/command_table.h"
#include "sim/controller/link/connections.h"

namespace bthal::sim {

class LeSecurity {
 public:
  // All outlive it.
  LeSecurity(Outlet* outlet, Links* links, Connections* connections)
      : outlet_(outlet), links_(links), connections_(connections) {}

  void AddTo(CommandTable* table);

 private:
  // Whether the peer has the same key decides.
  void Start(Link& link, const Bytes& name, const Bytes& hosts_key);
  void Tell(const Link& link, uint8_t status, bool refreshed);
  // To a neighbour that leads and wants to encrypt.
  Answer ReplyToNeighbour(const Bytes& parameters);

  Outlet* const outlet_;
  Links* const links_;
  Connections* const connections_;
};

}  // namespace bthal::sim
