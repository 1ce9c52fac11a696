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

// Two records are written for every packet that crosses the service, so a record costs one copy of its text and no
// more: slots keep their storage from one record to the next, the newest of a type is kept aside only when the history
// drops it, and times are turned into text only when somebody reads them. Not synchronised: its owner locks.
class RecordTable {
 public:
  using Time = std::chrono::system_clock::time_point;

  static constexpr size_t kMaxHistory = 400;

  RecordTable() = default;
  RecordTable(const RecordTable&) = delete;
  RecordTable& operator=(const RecordTable&) = delete;

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
    AnchorType type;
  };

  // The record that is appended next takes this slot; that of the record which the history drops, once it is full.
  Record& FreeSlot();
  const Record* LastAppearance(size_t type) const;

  std::array<Record, kMaxHistory> history_{};  // a ring
  size_t oldest_ = 0;
  size_t count_ = 0;
  std::array<const Record*, kTypes> newest_{};  // of each type, in the history; null: in dropped_, if seen
  std::array<Record, kTypes> dropped_{};
  std::bitset<kTypes> seen_;
};

// Local time as hours, minutes, seconds and milliseconds: 09:05:07:042.
std::string ToRecordTime(RecordTable::Time time);

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
