// What a machine must have for the service to bring a real controller up, looked at without changing any of it.
#pragma once

#include <vector>

#include "bthal/check/result.h"

namespace bthal::tool {

// Every check, in the order in which a bring-up needs things. Paths lie below the device root, if there is one.
std::vector<CheckResult> CheckMachine();

}  // namespace bthal::tool
