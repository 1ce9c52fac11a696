// A packet log, printed.
#pragma once

#include <optional>

#include "bthal/show/packet_line.h"
#include "bthal/show/snoop/btsnoop_reader.h"
#include "bthal/show/time_column.h"

namespace bthal::tool {

struct LogView {
  PacketView packets;
  TimeStyle time = TimeStyle::kWall;
  bool json = false;  // one object a line
};

class LogPrinter {
 public:
  explicit LogPrinter(const LogView& view) : view_(view) {}

  // To standard output. Relative times count from the first packet printed.
  void Print(const SnoopRecord& record);

 private:
  const LogView view_;
  std::optional<int64_t> first_us_;
};

// {"time_us":...,"direction":"to controller","kind":"command","words":"Reset","bytes":"03 0C 00"} without end of line;
// no direction and no time without `record`.
std::string PacketJson(const SnoopRecord* record, uint8_t kind, std::span<const uint8_t> packet);

}  // namespace bthal::tool
