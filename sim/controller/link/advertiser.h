// Advertising. Nobody around the board listens, so that what is advertised does not matter.
#pragma once

#include <set>

#include "sim/controller/command_table.h"

namespace bthal::sim {

class Advertiser {
 public:
  void AddTo(CommandTable* table);
  void Reset() { sets_.clear(); }

 private:
  void AddLegacy(CommandTable* table);
  void AddExtended(CommandTable* table);
  void AddSets(CommandTable* table);
  Answer SetParameters(const Bytes& parameters);
  Answer ForSet(uint8_t handle) const;
  Answer Enable(const Bytes& parameters) const;

  std::set<uint8_t> sets_;  // by their handles
};

}  // namespace bthal::sim
