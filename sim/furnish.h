// What a device root needs besides nodes that are alive.
#pragma once

#include <string>

#include "sim/base/options.h"

namespace bthal::sim {

// Folders, configuration, battery, device tree and patch files. Files that are there already stay as they
// are, but for patch files of our own with another number of records.
bool Furnish(const BoardOptions& options, std::string* error);

}  // namespace bthal::sim
