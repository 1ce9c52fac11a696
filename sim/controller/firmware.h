// Firmware patches: how they are made, and what the controller's loader makes of them.
#pragma once

#include <string>

#include "sim/base/bytes.h"

namespace bthal::sim {

// A patch file is a sequence of HCI commands. The last is Launch RAM; each of the others carries a piece of the image:
//
//   byte  0   2      3         7          9           11                     n-1
//        | opcode | length | address | sequence | records in all | image bytes | sum |
//
// all little-endian. The sum makes the parameter bytes add up to 0 modulo 256. The first record's image begins with the
// image's name and a zero byte.
inline constexpr uint16_t kWriteRamOpcode = 0xFC4C;
inline constexpr uint16_t kLaunchRamOpcode = 0xFC4E;
inline constexpr size_t kMaxPatchRecords = 0xFFFF;

// At least one record, besides Launch RAM, which can be left out.
Bytes MakePatchFile(const std::string& image_name, size_t records, bool with_launch = true);
// The number of records that a patch file of this make says it has; 0 if it is of another make or does not begin whole.
size_t PatchRecordCount(const Bytes& file);

// The loader that runs while a patch comes in.
class PatchLoader {
 public:
  // With `check` off every record is taken as it comes.
  explicit PatchLoader(bool check) : check_(check) {}

  void Start();
  // The status to answer: 0, or why not, with the reason in `error`.
  uint8_t Write(const uint8_t* parameters, size_t length, std::string* error);
  uint8_t Launch(const uint8_t* parameters, size_t length, std::string* error);

  size_t received() const { return received_; }
  size_t total() const { return total_; }
  const std::string& image_name() const { return image_name_; }

 private:
  const bool check_;
  size_t received_ = 0;
  size_t total_ = 0;
  bool broken_ = false;  // a record was refused: nothing will be launched
  std::string image_name_;
};

}  // namespace bthal::sim
