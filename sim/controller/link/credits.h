// Gives the host its data buffers back.
#pragma once

#include "sim/controller/outlet.h"
#include "sim/controller/settings.h"

namespace bthal::sim {

class Credits {
 public:
  // Both outlive it.
  Credits(Outlet* outlet, const Settings* settings) : outlet_(outlet), settings_(settings) {}

  // A data packet of this type has been passed on. Of SCO packets the host hears only under synchronous flow control.
  void Return(uint8_t type, uint16_t handle) const;

 private:
  Outlet* const outlet_;
  const Settings* const settings_;
};

}  // namespace bthal::sim
