#include "bthal/show/record_dump.h"

#include <algorithm>
#include <map>
#include <optional>

namespace bthal::tool {
namespace {

constexpr std::string_view kHistoryHeading = "Anchors' History";
constexpr std::string_view kIn = " [ IN]";
constexpr std::string_view kOut = " [OUT]";
constexpr int64_t kDayMs = int64_t{24} * 3600 * 1000;

// The rule above and below a heading.
bool IsRule(std::string_view line) {
  return line.size() >= 10 && line.find_first_not_of('=') == std::string_view::npos;
}

// "HH:MM:SS:mmm: text" -> the time of day in milliseconds; `text` becomes the rest.
std::optional<int64_t> TakeTime(std::string_view line, std::string_view* text) {
  constexpr std::string_view kShape = "00:00:00:000: ";
  if (line.size() < kShape.size()) return std::nullopt;
  int64_t numbers[4] = {0, 0, 0, 0};
  size_t field = 0;
  for (size_t i = 0; i < kShape.size(); ++i) {
    if (kShape[i] == '0') {
      if (line[i] < '0' || line[i] > '9') return std::nullopt;
      numbers[field] = numbers[field] * 10 + (line[i] - '0');
    } else {
      if (line[i] != kShape[i]) return std::nullopt;
      field = std::min<size_t>(field + 1, 3);
    }
  }
  if (numbers[0] > 23 || numbers[1] > 59 || numbers[2] > 60) return std::nullopt;
  *text = line.substr(kShape.size());
  return ((numbers[0] * 60 + numbers[1]) * 60 + numbers[2]) * 1000 + numbers[3];
}

// Gives every span a lane in which it does not cross another, and its depth there.
void AssignLanes(std::vector<Span>* spans) {
  std::vector<std::vector<int64_t>> open;  // for each lane the last records of what encloses the current one
  for (Span& span : *spans) {
    for (span.lane = 0;; ++span.lane) {
      if (span.lane == open.size()) open.emplace_back();
      std::vector<int64_t>& ends = open[span.lane];
      while (!ends.empty() && ends.back() < span.first_record) ends.pop_back();
      if (ends.empty() || span.last_record <= ends.back()) break;
    }
    span.depth = open[span.lane].size();
    if (!span.moment) open[span.lane].push_back(span.last_record);
  }
}

// For each record its time in microseconds: the table has milliseconds, and an order.
std::vector<int64_t> Microseconds(const std::vector<DumpRecord>& records) {
  std::vector<int64_t> times;
  int64_t within = 0;
  for (size_t i = 0; i < records.size(); ++i) {
    within = i > 0 && records[i].ms == records[i - 1].ms ? std::min<int64_t>(within + 1, 999) : 0;
    times.push_back(records[i].ms * 1000 + within);
  }
  return times;
}

}  // namespace

std::vector<DumpRecord> ParseRecordDump(std::string_view dump, std::string* error) {
  std::vector<DumpRecord> records;
  const size_t heading = dump.find(kHistoryHeading);
  if (heading == std::string_view::npos) {
    *error = "no \"Anchors' History\" in it: is this a report of `bthal dump`?";
    return records;
  }
  dump.remove_prefix(heading + kHistoryHeading.size());
  int64_t day = 0;
  bool in_table = false;
  while (!dump.empty()) {
    const size_t end = std::min(dump.find('\n'), dump.size());
    const std::string_view line = dump.substr(0, end);
    dump.remove_prefix(std::min(end + 1, dump.size()));
    if (IsRule(line)) {
      if (in_table) break;
      in_table = true;
      continue;
    }
    std::string_view text;
    if (const std::optional<int64_t> time = TakeTime(line, &text)) {
      in_table = true;
      const int64_t previous = records.empty() ? 0 : records.back().ms;
      if (!records.empty() && day + *time < previous - kDayMs / 2) day += kDayMs;
      records.push_back({std::max(day + *time, previous), std::string(text)});
    } else if (!records.empty() && line.starts_with("*")) {
      break;  // the report's next section
    } else if (!records.empty()) {
      records.back().text.append("\n").append(line);
    }
  }
  if (records.empty()) *error = "its \"Anchors' History\" is empty";
  return records;
}

std::vector<Span> PairRecords(const std::vector<DumpRecord>& records) {
  std::vector<Span> spans;
  std::map<std::string_view, std::vector<size_t>> open;  // by name: indices of spans that have not ended
  const std::vector<int64_t> times = Microseconds(records);
  const auto past_the_end = static_cast<int64_t>(records.size());
  for (int64_t at = 0; at < past_the_end; ++at) {
    const DumpRecord& record = records[static_cast<size_t>(at)];
    const std::string_view text = record.text;
    Span span;
    span.name = text;
    span.begin_ms = span.end_ms = record.ms;
    span.begin_us = span.end_us = times[static_cast<size_t>(at)];
    span.first_record = span.last_record = at;
    if (text.ends_with(kIn)) {
      const std::string_view name = text.substr(0, text.size() - kIn.size());
      open[name].push_back(spans.size());
      span.name = name;
      span.unfinished = true;
      span.end_ms = records.back().ms;
      span.end_us = times.back();
      span.last_record = past_the_end;
    } else if (text.ends_with(kOut)) {
      const std::string_view name = text.substr(0, text.size() - kOut.size());
      if (std::vector<size_t>& begun = open[name]; !begun.empty()) {
        Span& ended = spans[begun.back()];
        ended.end_ms = record.ms;
        ended.end_us = span.end_us;
        ended.last_record = at;
        ended.unfinished = false;
        begun.pop_back();
        continue;
      }
      span.name = name;
      span.began_earlier = true;
      span.begin_ms = records.front().ms;
      span.begin_us = times.front();
      span.first_record = -1;
    } else {
      span.moment = true;
    }
    spans.push_back(std::move(span));
  }
  std::ranges::stable_sort(spans, [](const Span& a, const Span& b) {
    return a.first_record != b.first_record ? a.first_record < b.first_record : a.last_record > b.last_record;
  });
  AssignLanes(&spans);
  return spans;
}

}  // namespace bthal::tool
