#include "bthal/show/trace_json.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringAppendF;
using ::android::base::StringPrintf;

constexpr int kNameWidth = 34;
constexpr int kLeastBarWidth = 20;
constexpr int kUsualWidth = 100;

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

std::string TraceJson(const std::vector<Span>& spans) {
  using Json = nlohmann::ordered_json;
  const int64_t zero = spans.empty() ? 0 : spans.front().begin_ms;
  Json events = {
      {{"name", "process_name"}, {"ph", "M"}, {"pid", 1}, {"tid", 0}, {"args", {{"name", "Bluetooth HAL"}}}}};
  for (const Span& span : spans) {
    Json event = {{"name", span.name}, {"cat", "record"}, {"pid", 1}, {"tid", span.lane}};
    event["ts"] = (span.begin_ms - zero) * 1000;
    event["ph"] = span.moment ? "i" : "X";
    if (span.moment) {
      event["s"] = "t";
    } else {
      event["dur"] = (span.end_ms - span.begin_ms) * 1000;
    }
    if (span.unfinished) event["args"]["unfinished"] = true;
    if (span.began_earlier) event["args"]["began_earlier"] = true;
    events.push_back(std::move(event));
  }
  const Json trace = {{"displayTimeUnit", "ms"}, {"traceEvents", std::move(events)}};
  return trace.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
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
