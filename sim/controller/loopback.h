// Local loopback: what the host sends comes back.
#pragma once

#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"
#include "sim/controller/link/credits.h"
#include "sim/controller/outlet.h"

namespace bthal::sim {

class Loopback {
 public:
  // All outlive it.
  Loopback(Outlet* outlet, const Identity* identity, const Credits* credits)
      : outlet_(outlet), identity_(identity), credits_(credits) {}

  void AddTo(CommandTable* table);
  void Reset() { on_ = false; }
  bool on() const { return on_; }
  // Whether this command comes back instead of being obeyed.
  bool Takes(uint16_t opcode) const;
  // The Loopback Command event for a whole command packet.
  static Bytes Command(const Bytes& packet);
  // Sends a data packet back, and its credit.
  void Data(uint8_t type, const Bytes& packet) const;

 private:
  Answer Write(uint8_t mode);

  Outlet* const outlet_;
  const Identity* const identity_;
  const Credits* const credits_;
  bool on_ = false;
};

}  // namespace bthal::sim
