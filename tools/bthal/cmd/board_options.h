// The virtual board's settings as options of a subcommand.
#pragma once

#include <string>

#include "sim/board.h"

namespace bthal::tool {

class Command;

// Adds --chip-id, --otp-written, --local-name, --address, --patch-records, --pace, --backend and --fault. `options`
// must live until the command line has been parsed.
void AddBoardOptions(Command& sub, sim::BoardOptions* options);

// Whether all of it makes sense; if not, one line in `error`. Nothing has been touched.
bool BoardOptionsAreClear(const sim::BoardOptions& options, std::string* error);

}  // namespace bthal::tool
