#include "bthal/show/packet_line.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <utility>

#include "bthal/hci/characters.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/words.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringAppendF;
using ::android::base::StringPrintf;

constexpr size_t kWordsWidth = 48;
constexpr size_t kLeastBytes = 3;
constexpr size_t kFieldColumn = 42;  // where a field's value stands

// The bytes that fit `room` columns, with a word on the rest; empty where that would be hardly any.
std::string FittingHex(std::span<const uint8_t> packet, size_t room) {
  constexpr size_t kRestNote = 12;  // " ... (+1024)"
  if (packet.size() * 3 <= room + 1) return Hex(packet);
  const size_t shown = room > kRestNote ? (room - kRestNote) / 3 : 0;
  return shown < kLeastBytes ? "" : Hex(packet, shown);
}

// `words` broken at blanks into lines of `room` columns, the later ones behind `before` blanks.
std::string Broken(std::string words, size_t room, size_t before) {
  std::string lines;
  while (words.size() > room) {
    const size_t blank = words.rfind(' ', room);
    const size_t at = blank == words.npos || blank == 0 ? UncutLength(words, room) : blank;
    if (at == words.size()) break;
    lines += words.substr(0, at) + "\n" + std::string(before, ' ');
    words.erase(0, words[at] == ' ' ? at + 1 : at);
  }
  return lines + words;
}

std::string Padded(std::string words, size_t columns) {
  const size_t taken = ColumnsOf(words);
  return words.append(columns > taken ? columns - taken : 0, ' ');
}

std::string Line(Direction direction, uint8_t kind, std::span<const uint8_t> packet, size_t before, size_t room,
                 bool with_bytes) {
  const bool from_controller = direction == Direction::kFromController;
  const Colour colour = from_controller ? Colour::kFromController : Colour::kToController;
  const std::string head = StringPrintf("%c %-7s  ", from_controller ? '>' : '<', KindWord(kind).c_str());
  const auto paint_words = [&](const std::string& words) { return Paint(colour, head + words); };
  if (room == 0) {
    std::string words = PacketWords(kind, packet);
    return paint_words(Padded(std::move(words), kWordsWidth) + "  ") + Paint(Colour::kFaint, Hex(packet));
  }
  room = room > head.size() ? room - head.size() : 1;
  std::string words = FittingWords(kind, packet, room);
  if (words.size() > room) return paint_words(Broken(words, room, before + head.size()));
  const size_t column = std::max(words.size(), kWordsWidth) + 2;
  const std::string hex = with_bytes && column < room ? FittingHex(packet, room - column) : "";
  if (hex.empty()) return paint_words(words);
  return paint_words(Padded(std::move(words), column)) + Paint(Colour::kFaint, hex);
}

}  // namespace

std::string PacketText(const PacketView& view, const std::string& time, Direction direction, uint8_t kind,
                       std::span<const uint8_t> packet) {
  const size_t room = view.to_file ? 0 : RoomBehind(time.size());
  const bool bytes_below = view.bytes && room != 0;
  std::string text = time + Line(direction, kind, packet, time.size(), room, !bytes_below) + "\n";
  if (bytes_below) text += Paint(Colour::kFaint, HexLines(packet));
  if (view.fields) text += FieldLines(kind, packet);
  return text;
}

std::string HexLines(std::span<const uint8_t> packet) {
  constexpr size_t kBytesALine = 16;
  std::string text;
  for (size_t at = 0; at < packet.size(); at += kBytesALine) {
    const auto row = packet.subspan(at, std::min(kBytesALine, packet.size() - at));
    StringAppendF(&text, "    %04zX  %s\n", at, Hex(row).c_str());
  }
  return text;
}

std::string FieldLines(uint8_t kind, std::span<const uint8_t> packet) {
  std::string text;
  for (const std::string& line : PacketFields(kind, packet)) text += "    " + line + "\n";
  return Folded(text, kFieldColumn);
}

}  // namespace bthal::tool
