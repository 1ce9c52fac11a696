// Whether everything that a demo shows has really happened, judged by what the board saw.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/board.h"

namespace bthal::tool {

struct DemoFact {
  bool holds = false;
  std::string text;
};

// How the patch came to the controller: record by record, or in the sensor hub's batches.
struct Download {
  uint64_t records = 0;
  uint64_t bytes = 0;     // of them, with their type bytes
  uint64_t messages = 0;  // from the service; as many as records where it has the UART itself
  double seconds = 0;     // from the first message to the last record's arrival

  double megabytes_per_second() const { return seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0; }
};

// Pure.
Download DownloadIn(const std::vector<sim::JournalEntry>& journal, bool hub);

// Pure. `client_begins` is the journal's length when the client had initialised the HAL: what the client itself asked
// for lies behind it.
std::vector<DemoFact> CheckDemo(const std::vector<sim::JournalEntry>& journal, size_t client_begins,
                                const sim::BoardOptions& options);

}  // namespace bthal::tool
