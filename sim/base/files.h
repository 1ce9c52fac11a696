// Folders and files below the device root. Each returns false with a line that says what to do in `error`.
#pragma once

#include <string>

namespace bthal::sim {

bool MakeFolder(const std::string& path, std::string* error);
bool MakeFoldersAbove(const std::string& path, std::string* error);
// Makes the folders above it too. Whoever has the old file open, or opens it meanwhile, reads the old one or the new
// one whole.
bool WriteFile(const std::string& path, const std::string& content, std::string* error);
bool WriteIfAbsent(const std::string& path, const std::string& content, std::string* error);

}  // namespace bthal::sim
