// The way to the host, for the controller's parts.
#pragma once

#include <string>

#include "sim/base/bytes.h"
#include "sim/base/timers.h"

namespace bthal::sim {

// Everything happens on the board's thread.
class Outlet {
 public:
  virtual ~Outlet() = default;
  virtual void SendEvent(uint8_t code, const Bytes& parameters) = 0;
  virtual void SendPacket(uint8_t type, const Bytes& packet) = 0;
  // Bytes that the host has not taken yet.
  virtual size_t Waiting() const = 0;
  virtual void ProtocolError(const std::string& what) = 0;
  // Cleared when the power goes.
  virtual Timers& timers() = 0;
};

}  // namespace bthal::sim
