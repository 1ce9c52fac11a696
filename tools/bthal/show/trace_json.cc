#include "bthal/show/trace_json.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cinttypes>

#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringAppendF;
using ::android::base::StringPrintf;

constexpr int kNameWidth = 34;
constexpr int kLeastBarWidth = 20;
constexpr int kUsualWidth = 100;

// The length of the UTF-8 sequence at the beginning of `text`; 0 when there is none.
size_t Utf8Length(std::string_view text) {
  const auto byte = [&](size_t at) { return static_cast<uint8_t>(text[at]); };
  const uint8_t first = byte(0);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xC2 && first <= 0xDF   ? 2
                        : first >= 0xE0 && first <= 0xEF ? 3
                        : first >= 0xF0 && first <= 0xF4 ? 4
                                                         : 0;
  if (length == 0 || text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  // Overlong forms, surrogates, and what lies beyond the last code point.
  if (first == 0xE0 && byte(1) < 0xA0) return 0;
  if (first == 0xED && byte(1) > 0x9F) return 0;
  if (first == 0xF0 && byte(1) < 0x90) return 0;
  if (first == 0xF4 && byte(1) > 0x8F) return 0;
  return length;
}

// Name columns: indented, cut where it is too long.
std::string NameColumn(const Span& span) {
  std::string name(2 * span.depth, ' ');
  name += span.name.substr(0, span.name.find('\n'));
  if (name.size() > kNameWidth) name = name.substr(0, kNameWidth - 2) + "..";
  return name;
}

std::string RemarkOf(const Span& span) {
  if (span.unfinished) return "  (still going on)";
  if (span.began_earlier) return "  (began earlier)";
  return "";
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string json = "\"";
  for (size_t i = 0; i < text.size();) {
    const size_t length = Utf8Length(text.substr(i));
    const char c = text[i];
    if (length == 0) {
      json += "\\ufffd";
      ++i;
      continue;
    }
    if (c == '"' || c == '\\') {
      json.append("\\").push_back(c);
    } else if (length == 1 && static_cast<uint8_t>(c) < 0x20) {
      StringAppendF(&json, "\\u%04x", static_cast<uint8_t>(c));
    } else {
      json.append(text.substr(i, length));
    }
    i += length;
  }
  return json + "\"";
}

std::string TraceJson(const std::vector<Span>& spans) {
  const int64_t zero = spans.empty() ? 0 : spans.front().begin_ms;
  std::string json = "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n";
  json += R"({"name":"process_name","ph":"M","pid":1,"tid":0,"args":{"name":"Bluetooth HAL"}})";
  for (const Span& span : spans) {
    StringAppendF(&json, ",\n{\"name\":%s,\"cat\":\"record\",\"pid\":1,\"tid\":%zu,\"ts\":%" PRId64,
                  JsonString(span.name).c_str(), span.lane, (span.begin_ms - zero) * 1000);
    if (span.moment) {
      json += ",\"ph\":\"i\",\"s\":\"t\"}";
      continue;
    }
    StringAppendF(&json, ",\"ph\":\"X\",\"dur\":%" PRId64, (span.end_ms - span.begin_ms) * 1000);
    if (span.unfinished) json += ",\"args\":{\"unfinished\":true}";
    if (span.began_earlier) json += ",\"args\":{\"began_earlier\":true}";
    json += "}";
  }
  return json + "\n]}\n";
}

std::string BarChart(const std::vector<Span>& spans, int width, int64_t least_ms) {
  std::vector<Span> shown;
  std::ranges::copy_if(spans, std::back_inserter(shown),
                       [&](const Span& span) { return !span.moment && span.end_ms - span.begin_ms >= least_ms; });
  if (shown.empty()) return "no scoped record\n";
  const int64_t zero = shown.front().begin_ms;
  const int64_t last = std::ranges::max(shown, {}, &Span::end_ms).end_ms;
  const int64_t whole = std::max<int64_t>(last - zero, 1);
  const int columns = std::max(kLeastBarWidth, (width == 0 ? kUsualWidth : width) - kNameWidth - 20);
  std::string chart =
      Paint(Colour::kHeading, StringPrintf("%-*s %8s %8s", kNameWidth, "step", "at ms", "took ms")) + "\n";
  for (const Span& span : shown) {
    const auto left = static_cast<int>((span.begin_ms - zero) * columns / whole);
    const auto right = static_cast<int>((span.end_ms - zero) * columns / whole);
    const std::string bar = right > left ? std::string(static_cast<size_t>(right - left), '#') : "|";
    StringAppendF(&chart, "%-*s %8lld %8lld  %*s%s%s\n", kNameWidth, NameColumn(span).c_str(),
                  static_cast<long long>(span.begin_ms - zero), static_cast<long long>(span.end_ms - span.begin_ms),
                  left, "", Paint(Colour::kGood, bar).c_str(), RemarkOf(span).c_str());
  }
  return chart;
}

}  // namespace bthal::tool
