// What the host tells the controller to be called, to filter and to avoid.
#pragma once

#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"

namespace bthal::sim {

// `identity` outlives the table.
void AddHostControl(CommandTable* table, Identity* identity);

}  // namespace bthal::sim
