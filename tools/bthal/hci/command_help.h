// What the dictionary tells people before they write a command.
#pragma once

#include <string>
#include <string_view>

#include "bthal/hci/dictionary.h"

namespace bthal::tool {

// How to write it: "le_set_scan_enable [enable=on] [filter_duplicates=off]".
std::string Usage(const Entry& command);

// All about one: its names, each parameter with what it takes, what comes back. Lines.
std::string CommandHelp(const Entry& command);

// The commands whose name, words or opcode contain `word`, a line each, in the standard's groups.
std::string CommandList(std::string_view word);

}  // namespace bthal::tool
