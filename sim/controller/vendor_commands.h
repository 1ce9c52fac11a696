// The maker's own commands, but for those that load a patch.
#pragma once

#include "sim/base/options.h"
#include "sim/controller/chip.h"
#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"
#include "sim/controller/outlet.h"

namespace bthal::sim {

class VendorCommands {
 public:
  // All outlive it.
  VendorCommands(const BoardOptions& options, Outlet* outlet, Chip* chip, Identity* identity)
      : options_(options), outlet_(outlet), chip_(chip), identity_(identity) {}

  void AddTo(CommandTable* table);
  void Forget();

 private:
  Answer Version() const;
  Answer DebugInformation();
  static Answer Capabilities();
  Answer QualityReports(const Bytes& parameters);
  Answer Finder(const Bytes& parameters);

  const BoardOptions& options_;
  Outlet* const outlet_;
  Chip* const chip_;
  Identity* const identity_;
  size_t finder_keys_ = 0;
  uint32_t quality_mask_ = 0;
};

}  // namespace bthal::sim
