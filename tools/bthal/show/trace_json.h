// Spans as a trace-event file, and as a chart in the terminal.
#pragma once

#include <string>
#include <vector>

#include "bthal/show/record_dump.h"

namespace bthal::tool {

// A JSON object in the trace-event format: one "X" event a span, one "i" event a moment, times in microseconds from the
// first record; lanes become threads. Bytes that are not UTF-8 become
// U+FFFD. Viewers of that format open it as it is.
std::string TraceJson(const std::vector<Span>& spans);

// One line a span: name (indented by what encloses it), when it began, how long it took, and a bar on a common scale
// that fills `width` columns (0: as many as are usual). Moments are left out, and spans shorter than `least_ms`.
std::string BarChart(const std::vector<Span>& spans, int width, int64_t least_ms);

}  // namespace bthal::tool
