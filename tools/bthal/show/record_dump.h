// The record table of a service report, read back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

// One line of the table.
struct DumpRecord {
  int64_t ms = 0;  // since midnight of the first record's day; never falls
  std::string text;
};

// What one scope of the service took, or one moment that it thought worth a record.
struct Span {
  std::string name;
  int64_t begin_ms = 0;
  int64_t end_ms = 0;  // == begin_ms for a moment
  bool moment = false;
  bool began_earlier = false;  // its beginning has already left the table
  bool unfinished = false;     // it was still going on when the report was made
  // The same in microseconds, those within a millisecond by the order of the table.
  int64_t begin_us = 0;
  int64_t end_us = 0;
  // Its place in the table, which orders what happened within one millisecond.
  int64_t first_record = 0;
  int64_t last_record = 0;
  size_t lane = 0;   // spans of one lane lie beside or inside one another
  size_t depth = 0;  // how many of the lane enclose it
};

// The lines of "Anchors' History", oldest first. A line that does not begin with a time belongs to the record above it.
// Times of day that fall by more than half a day have passed midnight; smaller steps back (the clock was set) are held.
// Empty, with one line in `error`, when `dump` holds no such table.
std::vector<DumpRecord> ParseRecordDump(std::string_view dump, std::string* error);

// Pairs " [ IN]" with the next " [OUT]" of the same text, the innermost first; in the order of their beginnings. Scopes
// without their partner reach to the end of the table that they fell off.
std::vector<Span> PairRecords(const std::vector<DumpRecord>& records);

}  // namespace bthal::tool
