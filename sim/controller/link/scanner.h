// Scanning for low-energy neighbours.
#pragma once

#include <set>

#include "sim/controller/command_table.h"
#include "sim/controller/outlet.h"
#include "sim/neighbours/neighbours.h"

namespace bthal::sim {

class Scanner {
 public:
  explicit Scanner(Outlet* outlet) : outlet_(outlet) {}

  void AddTo(CommandTable* table);
  void Reset();

 private:
  Answer Enable(bool enable, bool extended, bool once_each);
  void EndIn(Clock::duration duration);
  void ReportAll(uint64_t run);
  void Report(const Neighbour& neighbour, bool scan_response);

  Outlet* const outlet_;
  bool active_ = false;  // asks advertisers for more
  bool extended_ = false;
  bool once_each_ = false;
  std::set<Bytes> reported_;
  uint64_t runs_ = 0;  // counts scans
  uint64_t run_ = 0;   // the one under way; 0: none
};

}  // namespace bthal::sim
