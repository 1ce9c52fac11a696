// What a shell loads to complete the program's command line.
#pragma once

#include <string>

#include "bthal/cli/description.h"

namespace bthal::tool {

std::string BashCompletion(const CommandDescription& program);
std::string ZshCompletion(const CommandDescription& program);
std::string FishCompletion(const CommandDescription& program);

}  // namespace bthal::tool
