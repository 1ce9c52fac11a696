// The devices that the host wants the controller to know.
#pragma once

#include <set>

#include "sim/controller/command_table.h"

namespace bthal::sim {

class DeviceLists {
 public:
  void AddTo(CommandTable* table);
  void Reset();
  // Whether a connection to anyone on the accept list may be one to this device.
  bool Accepts(uint8_t address_type, const Bytes& address) const;

 private:
  void AddAcceptList(CommandTable* table);
  void AddResolvingList(CommandTable* table);

  // Address type and address.
  std::set<Bytes> accepted_;
  std::set<Bytes> resolved_;
};

}  // namespace bthal::sim
