// The rfkill entry by which the service powers its controller.
#pragma once

#include <string>

namespace bthal::tool {

// "/sys/class/rfkill/rfkill1", or nothing: the first of type bluetooth, as the service looks for it. Entries are
// numbered without a gap, so the first missing one ends the search.
std::string FindPowerSwitch();

}  // namespace bthal::tool
