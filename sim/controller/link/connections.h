// How connections come about and end, and what crosses them.
#pragma once

#include <optional>

#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"
#include "sim/controller/link/credits.h"
#include "sim/controller/link/device_lists.h"
#include "sim/controller/link/links.h"
#include "sim/controller/outlet.h"
#include "sim/controller/settings.h"
#include "sim/neighbours/neighbours.h"

namespace bthal::sim {

// How the host advertises, for whoever connects to it.
struct Advertised {
  std::optional<uint8_t> set;  // nothing: as hosts did before there were sets
  uint8_t own_type;            // of the host's address
  Bytes own_address;           // if that is a random one
  bool only_accepted;          // those on the accept list
  Bytes peer;                  // empty: for everybody
};

class Connections {
 public:
  // All outlive it.
  Connections(Outlet* outlet, const Settings* settings, const DeviceLists* lists, const Credits* credits,
              const Identity* identity, Links* links, Memories* memories)
      : outlet_(outlet),
        settings_(settings),
        lists_(lists),
        credits_(credits),
        identity_(identity),
        links_(links),
        memories_(memories) {}

  void AddTo(CommandTable* table);
  void Reset();
  // A data packet for a connection.
  void Data(uint8_t type, const Bytes& packet);
  // Ends a connection for whatever reason, and tells the host.
  void End(uint16_t handle, uint8_t reason);
  // A neighbour connects to the host; false if nobody wants to.
  bool ConnectToHost(const Advertised& advertised);
  // The host's random address from now on.
  void SetRandomAddress(const Bytes& address) { random_address_ = address; }

 private:
  struct Connecting {
    uint8_t peer_type;
    Bytes peer;        // empty: whoever is on the accept list
    bool enhanced;     // how the host asked is how it is told
    uint8_t own_type;  // which of its addresses the host uses
  };

  // connections.cc
  Link& NewLink(LinkKind kind, const Neighbour& neighbour, const WireAddress& host);
  void AskForTimes(Link& link, const Bytes& times);
  void AskForKey(Link& link, const Bytes& name);
  WireAddress OwnAddress(uint8_t type, const Bytes& random) const;

  // connect_classic.cc
  void AddClassic(CommandTable* table);
  void AddIncoming(CommandTable* table);
  void ConnectClassic(const Bytes& peer);
  void CompleteClassic(uint8_t status);
  void ConnectSynchronous(uint16_t handle);
  void TellName(const Bytes& peer);

  // connect_le.cc
  void AddLowEnergy(CommandTable* table);
  Answer ConnectLe(Connecting wanted);
  Answer CancelLe();
  void CompleteLe(uint8_t status);
  void TellLe(uint8_t status, uint16_t handle, Role role, const WireAddress& peer, bool enhanced);

  Outlet* const outlet_;
  const Settings* const settings_;
  const DeviceLists* const lists_;
  const Credits* const credits_;
  const Identity* const identity_;
  Links* const links_;
  Memories* const memories_;
  Bytes random_address_ = Bytes(6, 0);
  Bytes paging_;                          // whom the host connects to; empty: nobody
  std::optional<Connecting> connecting_;  // the same for low energy
  uint64_t pages_ = 0;                    // counts whom the host has paged
  uint64_t attempts_ = 0;                 // the same for low energy
};

}  // namespace bthal::sim
