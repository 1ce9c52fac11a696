// Advertising. The phone around the board connects to whoever lets it; what else is advertised does not matter to it.
#pragma once

#include <map>
#include <optional>

#include "sim/controller/command_table.h"
#include "sim/controller/link/connections.h"
#include "sim/controller/outlet.h"

namespace bthal::sim {

class Advertiser {
 public:
  // Both outlive it.
  Advertiser(Outlet* outlet, Connections* connections) : outlet_(outlet), connections_(connections) {}

  void AddTo(CommandTable* table);
  void Reset();

 private:
  struct Set {
    bool connectable = true;
    Advertised advertised{};
    uint64_t run = 0;  // counts all that were enabled; 0: off
  };

  void AddLegacy(CommandTable* table);
  void AddExtended(CommandTable* table);
  void AddSets(CommandTable* table);
  void SetLegacyParameters(const Bytes& parameters);
  Answer SetParameters(const Bytes& parameters);
  Answer SetAddress(const Bytes& parameters);
  Answer ForSet(uint8_t handle) const;
  Answer Enable(const Bytes& parameters);
  // What comes of it, if the set is still on in this run.
  void Start(Set* set);
  void EndIn(uint64_t run, Clock::duration duration);
  Set* FindRun(uint64_t run);

  Outlet* const outlet_;
  Connections* const connections_;
  Set legacy_;
  std::map<uint8_t, Set> sets_;  // by their handles
  uint64_t runs_ = 0;
};

}  // namespace bthal::sim
