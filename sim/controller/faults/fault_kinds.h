// What can go wrong, and what it is called.
#pragma once

#include <string>
#include <vector>

#include "sim/controller/faults/faults.h"

namespace bthal::sim {

struct FaultKey {
  const char* name;
  uint64_t value;  // when it is not given
  uint64_t max;
};

struct FaultWord {
  FaultKind kind;
  const char* name;
  const char* help;
  std::vector<FaultKey> keys;
};

struct CommandName {
  const char* name;
  uint16_t opcode;
};

const std::vector<FaultWord>& FaultWords();
// Names for opcodes in faults.
const std::vector<CommandName>& CommandNames();

}  // namespace bthal::sim
