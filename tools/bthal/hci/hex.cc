#include "bthal/hci/hex.h"

#include <android-base/parseint.h>

#include <charconv>

namespace bthal::tool {
namespace {

int Digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string Hex(std::span<const uint8_t> bytes, size_t limit) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  const size_t shown = limit == 0 || bytes.size() <= limit ? bytes.size() : limit;
  std::string text;
  text.reserve(shown * 3);
  for (const uint8_t byte : bytes.first(shown)) {
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  if (shown < bytes.size()) text += " ... (+" + std::to_string(bytes.size() - shown) + ")";
  return text;
}

std::optional<std::vector<uint8_t>> ParseHex(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size();) {
    if (text[i] == ' ' || text[i] == ':' || text[i] == '\t') {
      ++i;
      continue;
    }
    if (i + 1 >= text.size()) return std::nullopt;
    const int high = Digit(text[i]);
    const int low = Digit(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<uint8_t>(high << 4 | low));
    i += 2;
  }
  return bytes;
}

std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t max) {
  uint64_t value = 0;
  // It would skip white space, and take a sign.
  if (text.empty() || Digit(text.front()) < 0) return std::nullopt;
  return ::android::base::ParseUint(std::string(text), &value, max) ? std::optional(value) : std::nullopt;
}

std::optional<double> ParseSeconds(std::string_view text) {
  constexpr double kOneDay = 24 * 3600;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (!(value >= 0 && value <= kOneDay)) return std::nullopt;
  return value;
}

}  // namespace bthal::tool
