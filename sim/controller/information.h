// Who the controller is, what it can do and what it has room for.
#pragma once

#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"
#include "sim/controller/settings.h"

namespace bthal::sim {

// The longest low-energy data packet, towards the host and from it.
inline constexpr unsigned kLeDataLength = 251;

// The commands that ask for it. All pointers outlive the table.
void AddInformation(CommandTable* table, const Identity* identity, const Settings* settings);
void AddLeInformation(CommandTable* table);

}  // namespace bthal::sim
