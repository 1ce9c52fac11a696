#include "bthal/cli/shell_quotes.h"

#include <android-base/strings.h>

namespace bthal::tool {

std::string Quoted(const std::string& text) {
  return "'" + ::android::base::StringReplace(text, "'", "'\\''", true) + "'";
}

std::string QuotedIfNeeded(const std::string& text) {
  constexpr char kPlain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:,+@%=";
  return text.empty() || text.find_first_not_of(kPlain) != text.npos ? Quoted(text) : text;
}

}  // namespace bthal::tool
