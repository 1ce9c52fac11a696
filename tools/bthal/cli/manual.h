// Manual pages.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "bthal/cli/description.h"

namespace bthal::tool {

// The files of section 1, one for the program and one for each subcommand, with their names.
std::vector<std::pair<std::string, std::string>> ManualPages(const CommandDescription& program,
                                                             const std::string& version);

}  // namespace bthal::tool
