// Reads a btsnoop log piece by piece, as it grows.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bthal/show/packet_line.h"

namespace bthal::tool {

struct SnoopRecord {
  int64_t unix_us = 0;  // when, in microseconds since the Unix epoch
  bool from_controller = false;
  uint8_t kind = 0;              // H4 type byte
  uint32_t original_length = 0;  // of the packet, type byte included, when it was captured
  std::vector<uint8_t> packet;   // without type byte; shorter than the original when the log holds only a part
};

// Pure: bytes in, records out. A record that is still being written is kept back until the rest has come.
class BtsnoopReader {
 public:
  // Appends bytes of the file, in order.
  void Feed(std::span<const uint8_t> bytes);

  // The next whole record, or nothing: then error() tells whether the log is broken or merely at its end.
  std::optional<SnoopRecord> Next();

  // Empty, or why nothing more can be read: what is wrong, and at which offset of the file.
  const std::string& error() const { return error_; }

  // Bytes of a record (or of the file's header) that has not come whole.
  size_t pending() const { return buffer_.size() - at_; }

 private:
  bool ReadFileHeader();

  std::vector<uint8_t> buffer_;
  size_t at_ = 0;        // first byte of buffer_ that has not been consumed
  uint64_t offset_ = 0;  // of that byte in the file
  bool header_read_ = false;
  std::string error_;
};

// "12 commands, 14 events, 3 acl packets": how many of each kind, in words.
std::string CountWords(std::span<const SnoopRecord> records);

// As packet_line.h shows it, behind `time`.
std::string SnoopText(const PacketView& view, const std::string& time, const SnoopRecord& record);

// The same for many, behind the time of day; of more than three commands in a row with one opcode (a firmware patch)
// only the first is shown.
std::vector<std::string> FoldedSnoopLines(std::span<const SnoopRecord> records);

}  // namespace bthal::tool
