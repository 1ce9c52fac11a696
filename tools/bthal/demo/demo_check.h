// Whether everything that a demo shows has really happened, judged by what the board saw.
#pragma once

#include <string>
#include <vector>

#include "sim/board.h"

namespace bthal::tool {

struct DemoFact {
  bool holds = false;
  std::string text;
};

// Pure. `client_begins` is the journal's length when the client had initialised the HAL: what the client itself asked
// for lies behind it.
std::vector<DemoFact> CheckDemo(const std::vector<sim::JournalEntry>& journal, size_t client_begins,
                                const sim::BoardOptions& options);

}  // namespace bthal::tool
