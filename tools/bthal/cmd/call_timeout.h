// --call-timeout, of every subcommand that calls the service.
#pragma once

#include <functional>

namespace bthal::tool {

class Command;

// Adds the option, and `run`, which finds the patience set.
void RunWithCallTimeout(Command& sub, std::function<int()> run);

}  // namespace bthal::tool
