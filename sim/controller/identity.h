// Who the controller says it is.
#pragma once

#include <string>

#include "sim/base/bytes.h"
#include "sim/base/options.h"

namespace bthal::sim {

// Shared by the controller's parts.
struct Identity {
  explicit Identity(const BoardOptions& options);

  // As a loss of power does: the ROM answers again.
  void Forget();
  // The patch answers from now on.
  void Patch();

  // The address is this one, and cannot be changed: that of an emulator.
  void Fix(const Bytes& address);

  uint8_t chip_id;
  std::string patched_name;
  Bytes own_address;  // least significant byte first
  bool address_is_fixed = false;

  std::string name;    // what Read Local Name answers
  uint16_t build = 0;  // 0: no patch runs
  Bytes address;
};

}  // namespace bthal::sim
