#include "bthal/hci/characters.h"

#include <algorithm>

namespace bthal::tool {
namespace {

bool Continues(char c) { return (c & 0xC0) == 0x80; }

// U+202A to U+202E and U+2066 to U+2069: what follows one of them need not read as it is written.
bool TurnsDirection(std::string_view character) {
  const auto last = static_cast<unsigned char>(character[2]);
  if (character.starts_with("\xE2\x80")) return last >= 0xAA && last <= 0xAE;
  return character.starts_with("\xE2\x81") && last >= 0xA6 && last <= 0xA9;
}

}  // namespace

size_t WideLength(std::string_view text) {
  const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned first = byte(0);
  const size_t length = first >= 0xC2 && first <= 0xDF ? 2 : (first & 0xF0) == 0xE0 ? 3 : first - 0xF0 <= 4 ? 4 : 0;
  for (size_t at = 1; at < length; ++at) {
    if (at == text.size()) return kMoreMustCome;
    if ((byte(at) & 0xC0) != 0x80) return 0;
    if (at > 1) continue;
    const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool no_character = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
    if (overlong || no_character || (first == 0xC2 && byte(1) < 0xA0)) return 0;
  }
  return length == 3 && TurnsDirection(text) ? 0 : length;
}

size_t ColumnsOf(std::string_view text) {
  return text.size() - static_cast<size_t>(std::ranges::count_if(text, Continues));
}

size_t UncutLength(std::string_view text, size_t length) {
  while (length < text.size() && Continues(text[length])) ++length;
  return length;
}

}  // namespace bthal::tool
