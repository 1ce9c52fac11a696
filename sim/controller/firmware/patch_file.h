// Firmware patches: how they are made and read.
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
inline constexpr size_t kMaxPatchRecords = 0xFFFF;

// At least one record, besides Launch RAM, which can be left out.
Bytes MakePatchFile(const std::string& image_name, size_t records, bool with_launch = true);
// The number of records that a patch file of this make says it has; 0 if it is of another make or does not begin whole.
size_t PatchRecordCount(const Bytes& file);

struct PatchRecord {
  size_t sequence = 0;
  size_t total = 0;
  std::string image_name;  // of the first record
};

// Reads a record from its command's parameters; false with what is wrong in `why`.
bool ReadPatchRecord(const Bytes& parameters, PatchRecord* record, std::string* why);

}  // namespace bthal::sim
