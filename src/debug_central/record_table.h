// The bounded table of debug records: the newest 400, and the newest of every type.
#pragma once

#include <array>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "debug_central/anchor_type.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// Two records are written for every packet that crosses the service, so a record costs a copy of its text and no more:
// slots keep their storage from one record to the next, and times are turned into text only when somebody reads them.
// Not synchronised: its owner locks.
class RecordTable {
 public:
  using Time = std::chrono::system_clock::time_point;

  static constexpr size_t kMaxHistory = 400;

  // Appends `text` followed by `suffix`, dropping the oldest record of a full history.
  void Append(AnchorType type, Time time, std::string_view text, std::string_view suffix = {});

  // Append one line for every type that was ever recorded, in ascending order, and one for every record of the history,
  // oldest first.
  void PrintLastAppearances(std::string& out) const;
  void PrintHistory(std::string& out) const;

 private:
  static constexpr size_t kTypes = 256;

  struct Record {
    std::string text;
    Time time;

    void Assign(Time when, std::string_view first, std::string_view second);
  };

  std::array<Record, kMaxHistory> history_;  // a ring
  size_t oldest_ = 0;
  size_t count_ = 0;
  std::array<Record, kTypes> last_appearance_;
  std::bitset<kTypes> seen_;
};

// Local time as hours, minutes, seconds and milliseconds: 09:05:07:042.
std::string ToRecordTime(RecordTable::Time time);

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
