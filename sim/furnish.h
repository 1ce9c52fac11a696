// What a device root needs besides nodes that are alive.
#pragma once

#include <string>

#include "sim/board.h"

namespace bthal::sim {

bool MakeFolder(const std::string& path, std::string* error);
bool MakeFoldersAbove(const std::string& path, std::string* error);
bool WriteIfAbsent(const std::string& path, const std::string& content, std::string* error);

// Folders, configuration, battery, device tree and patch files. Files that are there already stay as they
// are, but for patch files of our own with another number of records.
bool Furnish(const BoardOptions& options, std::string* error);

}  // namespace bthal::sim
