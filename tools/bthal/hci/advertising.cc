#include "bthal/hci/advertising.h"

#include <android-base/stringprintf.h>

#include <algorithm>

#include "bthal/hci/dictionary.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/values.h"

namespace bthal::tool {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint8_t kShortName = 0x08;
constexpr uint8_t kName = 0x09;
constexpr uint8_t kTxPower = 0x0A;

struct Piece {
  uint8_t type = 0;
  Bytes value;
};

// What is whole; zeros may fill up the end. `*rest` is what is left where a length points beyond the end.
std::vector<Piece> Pieces(Bytes data, Bytes* rest) {
  std::vector<Piece> pieces;
  while (!data.empty() && data[0] != 0) {
    const size_t length = data[0];
    if (1 + length > data.size()) {
      *rest = data;
      break;
    }
    pieces.push_back({data[1], data.subspan(2, length - 1)});
    data = data.subspan(1 + length);
  }
  return pieces;
}

std::string ValueWords(const Piece& piece) {
  if (piece.type == kShortName || piece.type == kName) return QuotedText(piece.value);
  if (piece.type == kTxPower && piece.value.size() == 1) {
    return std::to_string(static_cast<int8_t>(piece.value[0])) + " dBm";
  }
  return Hex(piece.value);
}

}  // namespace

std::vector<std::string> AdvertisingLines(Bytes data) {
  static const FieldType& types = *FindType("advertising_type");
  Bytes rest;
  std::vector<std::string> lines;
  for (const Piece& piece : Pieces(data, &rest)) {
    const std::string* words = FindWords(types, piece.type);
    const std::string name = words != nullptr ? *words : ::android::base::StringPrintf("type 0x%02X", piece.type);
    lines.push_back(name + " " + ValueWords(piece));
  }
  if (!rest.empty()) lines.push_back("cut: " + Hex(rest));
  return lines;
}

std::string AdvertisedName(Bytes data) {
  Bytes rest;
  for (const Piece& piece : Pieces(data, &rest)) {
    if (piece.type == kShortName || piece.type == kName) return QuotedText(piece.value);
  }
  return "";
}

}  // namespace bthal::tool
