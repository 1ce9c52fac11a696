#include "bthal/show/trace_json.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringAppendF;
using ::android::base::StringPrintf;

constexpr int kNameWidth = 34;
constexpr int kLeastNameWidth = 22;  // in a narrow terminal
constexpr int kFigureWidth = 20;
constexpr int kLeastBarWidth = 20;
constexpr int kUsualWidth = 100;
constexpr int kRemarkWidth = 18;
constexpr char kBringUp[] = "perform_init";

// Name columns: indented, cut where it is too long.
std::string NameColumn(const Span& span, size_t width) {
  std::string name(2 * span.depth, ' ');
  name += span.name.substr(0, span.name.find('\n'));
  if (name.size() > width) name = name.substr(0, width - 2) + "..";
  return name;
}

std::string RemarkOf(const Span& span) {
  if (span.unfinished) return "  (still going on)";
  if (span.began_earlier) return "  (began earlier)";
  return "";
}

// The time while something goes on, as the chart's scale: an hour of silence behind a bring-up would leave it no
// column.
class BusyTime {
 public:
  // In the order of their beginnings.
  explicit BusyTime(const std::vector<Span>& spans) {
    for (const Span& span : spans) {
      if (periods_.empty() || span.begin_ms > periods_.back().second) {
        periods_.emplace_back(span.begin_ms, span.end_ms);
      } else {
        periods_.back().second = std::max(periods_.back().second, span.end_ms);
      }
    }
    whole_ = std::max<int64_t>(Until(periods_.back().second), 1);
  }

  int Column(int64_t ms, int columns) const { return static_cast<int>(Until(ms) * columns / whole_); }

 private:
  int64_t Until(int64_t ms) const {
    int64_t sum = 0;
    for (const auto& [begin, end] : periods_) sum += std::clamp(ms, begin, end) - begin;
    return sum;
  }

  std::vector<std::pair<int64_t, int64_t>> periods_;
  int64_t whole_ = 1;
};

}  // namespace

std::string TraceJson(const std::vector<Span>& spans) {
  using Json = nlohmann::ordered_json;
  const int64_t zero = spans.empty() ? 0 : spans.front().begin_us;
  size_t rows = 0;
  Json events = {
      {{"name", "process_name"}, {"ph", "M"}, {"pid", 1}, {"tid", 0}, {"args", {{"name", "Bluetooth HAL"}}}}};
  for (const Span& span : spans) {
    Json event = {{"name", span.name}, {"cat", "record"}, {"pid", 1}, {"tid", span.lane}};
    rows = std::max(rows, span.lane + 1);
    event["ts"] = span.begin_us - zero;
    event["ph"] = span.moment ? "i" : "X";
    if (span.moment) {
      event["s"] = "t";
    } else {
      event["dur"] = span.end_us - span.begin_us;
    }
    if (span.unfinished) event["args"]["unfinished"] = true;
    if (span.began_earlier) event["args"]["began_earlier"] = true;
    events.push_back(std::move(event));
  }
  for (size_t row = 0; row < rows; ++row) {
    events.push_back({{"name", "thread_name"},
                      {"ph", "M"},
                      {"pid", 1},
                      {"tid", row},
                      {"args", {{"name", "thread " + std::to_string(row + 1)}}}});
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
  const BusyTime busy(shown);
  const bool remarks = std::ranges::any_of(shown, [](const Span& span) { return !RemarkOf(span).empty(); });
  const int room = (width == 0 ? kUsualWidth : width) - kFigureWidth - (remarks ? kRemarkWidth : 0);
  const int names = std::clamp(room - kLeastBarWidth, kLeastNameWidth, kNameWidth);
  const int columns = std::max(kLeastBarWidth, room - names);
  std::string chart = Paint(Colour::kHeading, StringPrintf("%-*s %8s %8s", names, "step", "at ms", "took ms")) + "\n";
  for (const Span& span : shown) {
    const int left = std::min(busy.Column(span.begin_ms, columns), columns - 1);
    const int right = busy.Column(span.end_ms, columns);
    const std::string bar = right > left ? std::string(static_cast<size_t>(right - left), '#') : "|";
    StringAppendF(&chart, "%-*s %8lld %8lld  %*s%s%s\n", names, NameColumn(span, static_cast<size_t>(names)).c_str(),
                  static_cast<long long>(span.begin_ms - zero), static_cast<long long>(span.end_ms - span.begin_ms),
                  left, "", Paint(Colour::kGood, bar).c_str(), RemarkOf(span).c_str());
  }
  return chart;
}

std::string MissingBringUp(const std::vector<Span>& spans, std::string_view dump) {
  const auto last = std::find_if(spans.rbegin(), spans.rend(),
                                 [](const Span& span) { return !span.moment && span.name == kBringUp; });
  const std::string table = " has left the table, which keeps the last 400 records";
  if (last != spans.rend()) return last->began_earlier ? "the beginning of the bring-up" + table : "";
  // The report also keeps when each step was taken last.
  const std::string seen = std::string("Timestamp of ") + kBringUp + " [OUT]: ";
  const size_t at = dump.find(seen);
  if (at == dump.npos) return "no bring-up has ended since the service started";
  constexpr size_t kSeconds = sizeof("00:00:00") - 1;
  return "the bring-up that ended at " + std::string(dump.substr(at + seen.size(), kSeconds)) + table;
}

}  // namespace bthal::tool
