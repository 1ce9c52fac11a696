// How fast the patch comes to the controller at the line's real pace, by the sensor hub or without it.
#pragma once

#include <optional>
#include <string>

#include "bthal/demo/demo_check.h"
#include "sim/board.h"

namespace bthal::tool {

// Brings the same controller up once more, below the new folder `root`, as far as the patch's launch, and ends it
// there; the service's log is `log`. Nothing where that did not come, or the user has interrupted.
std::optional<Download> PacedDownload(sim::BoardOptions board, bool hub, const std::string& root,
                                      const std::string& log);

}  // namespace bthal::tool
