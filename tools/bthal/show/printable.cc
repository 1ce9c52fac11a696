#include "bthal/show/printable.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <utility>

#include "bthal/hci/characters.h"

namespace bthal::tool {
namespace {

constexpr char kEscape = '\x1b';
constexpr size_t kLongestColour = 5;  // "\033[36m"

std::string Escaped(char c) { return ::android::base::StringPrintf("\\x%02x", static_cast<unsigned char>(c)); }

// "\033[", one or two digits, "m": 0 to 2 or 30 to 37, which change nothing but how letters look.
size_t ColourLength(std::string_view text) {
  const std::string_view start = text.substr(0, kLongestColour);
  const size_t end = start.find('m');
  const std::string_view code = start.substr(std::min<size_t>(2, start.size()), end == start.npos ? end : end - 2);
  if (start.size() > 1 && start[1] != '[') return 0;
  if (!std::ranges::all_of(code, [](char c) { return c >= '0' && c <= '9'; })) return 0;
  if (end == start.npos) return start.size() < kLongestColour ? kMoreMustCome : 0;
  const bool ours = (code.size() == 1 && code[0] <= '2') || (code.size() == 2 && code[0] == '3' && code[1] <= '7');
  return ours ? end + 1 : 0;
}

// The length of what begins at the front of `text` and may pass as it is: 0, nothing may; or more must come to tell.
size_t PassingLength(std::string_view text) {
  const char c = text[0];
  if (c == kEscape) return ColourLength(text);
  if (static_cast<unsigned char>(c) >= 0x80) return WideLength(text);
  return c == '\n' || c == '\t' || (c >= ' ' && c != '\x7f') ? 1 : 0;
}

}  // namespace

std::string TerminalFilter::Pass(std::string_view piece) {
  const std::string all = std::exchange(held_, "").append(piece);
  std::string passed;
  for (std::string_view text = all; !text.empty();) {
    const size_t length = PassingLength(text);
    if (length == kMoreMustCome) {
      held_ = text;
      break;
    }
    if (length == 0) {
      passed += Escaped(text[0]);
    } else {
      passed += text.substr(0, length);
    }
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return passed;
}

std::string TerminalFilter::Rest() {
  std::string rest;
  for (const char c : std::exchange(held_, ""))
    rest += c == kEscape || (c & 0x80) != 0 ? Escaped(c) : std::string(1, c);
  return rest;
}

std::string PrintableLine(std::string_view text) {
  TerminalFilter filter;
  std::string line;
  for (const char c : filter.Pass(text) + filter.Rest())
    line += c == '\n' || c == '\t' ? Escaped(c) : std::string(1, c);
  return line;
}

}  // namespace bthal::tool
