#define LOG_TAG "bthal.config"

#include "conf/conf_line.h"

#include <android-base/logging.h>

#include <algorithm>

namespace android::hardware::bluetooth::conf {
namespace {

constexpr char kCommentMark = '#';
constexpr std::string_view kNameDelimiters = " =\n\r\t";
constexpr std::string_view kValueDelimiters = "=\n\r\t";  // no blank: a value may contain some
constexpr std::string_view kBlanks = " \t";

std::string_view TakeToken(std::string_view& rest, std::string_view delimiters) {
  const size_t begin = std::min(rest.find_first_not_of(delimiters), rest.size());
  const size_t end = std::min(rest.find_first_of(delimiters, begin), rest.size());
  const std::string_view token = rest.substr(begin, end - begin);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return token;
}

std::string_view TrimBlanks(std::string_view text) {
  const size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
  const size_t end = text.find_last_not_of(kBlanks);
  return end == std::string_view::npos ? std::string_view() : text.substr(begin, end + 1 - begin);
}

}  // namespace

std::optional<ConfigPair> ParseLine(std::string_view line) {
  if (!line.empty() && line.front() == kCommentMark) return std::nullopt;
  const std::string name(TakeToken(line, kNameDelimiters));
  if (name.empty()) return std::nullopt;
  const std::string_view value = TakeToken(line, kValueDelimiters);
  if (value.empty()) {
    LOG(WARNING) << "vnd_load_conf: missing value for name: " << name;
    return std::nullopt;
  }
  return ConfigPair{name, std::string(TrimBlanks(value))};
}

}  // namespace android::hardware::bluetooth::conf
