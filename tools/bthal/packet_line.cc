#include "bthal/packet_line.h"

#include <android-base/stringprintf.h>

#include "bthal/hci_words.h"
#include "bthal/hex.h"
#include "bthal/terminal.h"

namespace bthal::tool {
namespace {

constexpr int kWordsWidth = 46;
constexpr size_t kShownBytes = 24;

}  // namespace

std::string PacketLine(Direction direction, uint8_t kind, std::span<const uint8_t> packet) {
  const bool from_controller = direction == Direction::kFromController;
  const std::string line =
      ::android::base::StringPrintf("%c %-7s  %-*s  ", from_controller ? '<' : '>', KindWord(kind).c_str(), kWordsWidth,
                                    PacketWords(kind, packet).c_str());
  return Paint(from_controller ? Colour::kFromController : Colour::kToController, line) +
         Paint(Colour::kFaint, Hex(packet, kShownBytes));
}

}  // namespace bthal::tool
