// Packets taken apart by the dictionary. Pure: bytes in, values out; never reads beyond what is there.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "bthal/hci/dictionary.h"

namespace bthal::tool {

struct FieldValue {
  const Field* field = nullptr;    // the dictionary's, static
  uint64_t number = 0;             // of a kNumber, sign-extended where it is signed
  std::span<const uint8_t> bytes;  // of the others, those in use; they are the packet's, and live as long as it does
  std::vector<std::vector<FieldValue>> elements;
};

struct Decoded {
  std::string title;  // "LE Set Scan Enable", "Command Complete"
  std::vector<FieldValue> values;
  std::string problem;  // empty, or what is wrong: "cut in bd_addr: 6 bytes needed, 2 there"
};

// The values of `fields` in `bytes`, as far as there are bytes for them, and what is wrong. `*used`: the bytes they
// take.
std::vector<FieldValue> DecodeFields(std::span<const Field> fields, std::span<const uint8_t> bytes, size_t* used,
                                     std::string* problem);

// A command or an event, header included; whatever is not in the dictionary has its bytes as one value.
Decoded DecodeCommand(std::span<const uint8_t> packet);
Decoded DecodeEvent(std::span<const uint8_t> packet);

}  // namespace bthal::tool
