// Spans as a trace-event file, and as a chart in the terminal.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "bthal/show/record_dump.h"

namespace bthal::tool {

// A JSON object in the trace-event format: one "X" event a span, one "i" event a moment, a row for each thread that
// must have been there, for what crosses cannot have run on one. Times are microseconds from the first record; the
// table counts milliseconds, so those within one tell its order, and no more. Bytes that are not UTF-8 become U+FFFD.
// Viewers of that format open it as it is.
std::string TraceJson(const std::vector<Span>& spans);

// One line a span: name (indented by what encloses it), when it began, how long it took, and a bar on a common scale
// that fills `width` columns (0: as many as are usual). While nothing goes on, the scale stands still. Moments are left
// out, and spans shorter than `least_ms`.
std::string BarChart(const std::vector<Span>& spans, int width, int64_t least_ms);

// Why the chart lacks the last bring-up, or its beginning, in one line; empty where it is whole. `dump` is the report
// that the spans are from.
std::string MissingBringUp(const std::vector<Span>& spans, std::string_view dump);

}  // namespace bthal::tool
