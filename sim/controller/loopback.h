// Local loopback: what the host sends comes back.
#pragma once

#include <map>

#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"

namespace bthal::sim {

class Loopback {
 public:
  Loopback(Outlet* outlet, Identity* identity) : outlet_(outlet), identity_(identity) {}

  void AddTo(CommandTable* table);
  void Reset() { on_ = false; }
  bool on() const { return on_; }
  // Whether this command comes back instead of being obeyed.
  bool Takes(uint16_t opcode) const;
  // The Loopback Command event for a whole command packet.
  static Bytes Command(const Bytes& packet);
  // Sends a data packet back, and its credit.
  void Data(uint8_t type, const Bytes& packet);

 private:
  Answer Write(const Bytes& parameters);

  Outlet* const outlet_;
  Identity* const identity_;
  bool on_ = false;
};

}  // namespace bthal::sim
