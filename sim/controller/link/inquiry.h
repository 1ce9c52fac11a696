// Inquiry: who is around, apart from low-energy devices.
#pragma once

#include "sim/controller/command_table.h"
#include "sim/controller/outlet.h"
#include "sim/controller/settings.h"
#include "sim/neighbours/neighbours.h"

namespace bthal::sim {

class Inquiry {
 public:
  // Both outlive it.
  Inquiry(Outlet* outlet, const Settings* settings) : outlet_(outlet), settings_(settings) {}

  void AddTo(CommandTable* table);
  void Reset() { run_ = 0; }

 private:
  Answer Begin();
  Answer Cancel();
  void End(uint64_t run);
  void Report(const Neighbour& neighbour);

  Outlet* const outlet_;
  const Settings* const settings_;
  uint64_t runs_ = 0;  // counts inquiries
  uint64_t run_ = 0;   // the one under way; 0: none
};

}  // namespace bthal::sim
