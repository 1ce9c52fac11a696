// The values that the host writes and reads back, until HCI Reset.
#pragma once

#include <map>

#include "sim/base/bytes.h"
#include "sim/controller/command_table.h"

namespace bthal::sim {

class Settings {
 public:
  Settings() { Reset(); }

  void AddTo(CommandTable* table);
  // Back to the defaults.
  void Reset();
  // What the command `write` wrote last.
  const Bytes& Value(uint16_t write) const { return values_.at(write); }
  // Whether the host has asked for this low-energy event.
  bool WantsLeEvent(uint8_t sub_event) const;

 private:
  void AddAccessCode(CommandTable* table);

  std::map<uint16_t, Bytes> values_;  // by the opcode that writes them
};

}  // namespace bthal::sim
