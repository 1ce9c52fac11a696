#include "bthal/show/packet_line.h"

#include <android-base/stringprintf.h>

#include <algorithm>

#include "bthal/hci/hex.h"
#include "bthal/hci/words.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

constexpr int kWordsWidth = 48;
constexpr size_t kLeastBytes = 3;
constexpr size_t kMostBytes = 24;

// How many of `count` bytes to show behind `used` columns, so that they and a word on the rest fit the terminal.
size_t ShownBytes(size_t count, size_t used) {
  const auto width = static_cast<size_t>(TerminalWidth());
  if (width == 0) return kMostBytes;
  constexpr size_t kRestNote = 11;  // " ... (+243)"
  const size_t left = used < width ? width - used : 0;
  if (count * 3 <= left + 1) return kMostBytes;
  return std::clamp(left > kRestNote ? (left - kRestNote) / 3 : 0, kLeastBytes, kMostBytes);
}

}  // namespace

std::string PacketLine(Direction direction, uint8_t kind, std::span<const uint8_t> packet, size_t columns_before) {
  const bool from_controller = direction == Direction::kFromController;
  const std::string line =
      ::android::base::StringPrintf("%c %-7s  %-*s  ", from_controller ? '<' : '>', KindWord(kind).c_str(), kWordsWidth,
                                    PacketWords(kind, packet).c_str());
  return Paint(from_controller ? Colour::kFromController : Colour::kToController, line) +
         Paint(Colour::kFaint, Hex(packet, ShownBytes(packet.size(), columns_before + line.size())));
}

std::string FieldLines(uint8_t kind, std::span<const uint8_t> packet) {
  std::string text;
  for (const std::string& line : PacketFields(kind, packet)) text += "    " + line + "\n";
  return text;
}

}  // namespace bthal::tool
