#include "bthal/packet_line.h"

#include <android-base/stringprintf.h>

#include <algorithm>

#include "bthal/hci_words.h"
#include "bthal/hex.h"
#include "bthal/terminal.h"

namespace bthal::tool {
namespace {

constexpr int kWordsWidth = 50;
constexpr size_t kTimeColumns = 18;  // the widest that stand before our line
constexpr size_t kLeastBytes = 4;
constexpr size_t kMostBytes = 24;

// How many bytes still fit behind what is on the line, with a word on those that do not.
size_t ShownBytes(size_t columns_used) {
  if (TerminalWidth() == 0) return kMostBytes;
  constexpr size_t kRestNote = 12;
  const auto width = static_cast<size_t>(TerminalWidth());
  const size_t used = kTimeColumns + columns_used + kRestNote;
  return std::clamp(used < width ? (width - used) / 3 : 0, kLeastBytes, kMostBytes);
}

}  // namespace

std::string PacketLine(Direction direction, uint8_t kind, std::span<const uint8_t> packet) {
  const bool from_controller = direction == Direction::kFromController;
  const std::string line =
      ::android::base::StringPrintf("%c %-7s  %-*s  ", from_controller ? '<' : '>', KindWord(kind).c_str(), kWordsWidth,
                                    PacketWords(kind, packet).c_str());
  return Paint(from_controller ? Colour::kFromController : Colour::kToController, line) +
         Paint(Colour::kFaint, Hex(packet, ShownBytes(line.size())));
}

}  // namespace bthal::tool
