// bthal timeline: where the time went.
#include <android-base/file.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/show/output_file.h"
#include "bthal/show/record_dump.h"
#include "bthal/show/terminal.h"
#include "bthal/show/trace_json.h"

namespace bthal::tool {
namespace {

struct TimelineOptions {
  std::string file;
  std::string output;
  int least_ms = 0;
};

bool ReadInput(const std::string& name, std::string* content) {
  if (name == "-") return ::android::base::ReadFdToString(STDIN_FILENO, content);
  return ::android::base::ReadFileToString(name, content, /*follow_symlinks=*/true);
}

int Run(const TimelineOptions& options) {
  std::string dump;
  std::string error;
  if (!options.output.empty() && !MayWriteOutput(options.output, &error)) return Complain(error);
  if (!ReadInput(options.file, &dump)) return Complain("cannot read " + options.file + ": " + strerror(errno));
  const std::vector<DumpRecord> records = ParseRecordDump(dump, &error);
  if (records.empty()) return Complain(options.file + ": " + error);
  const std::vector<Span> spans = PairRecords(records);
  printf("%s", BarChart(spans, TerminalWidth(), options.least_ms).c_str());
  const std::string missing = MissingBringUp(spans, dump);
  if (!missing.empty()) printf("\n%s\n", Folded(missing).c_str());
  if (options.output.empty()) return 0;
  if (!WriteOutput(options.output, TraceJson(spans), &error)) return Complain(error);
  printf("\n%zu records written to %s\n", spans.size(), options.output.c_str());
  return 0;
}

}  // namespace

void AddTimeline(Command& app) {
  auto options = std::make_shared<TimelineOptions>();
  Command sub = app.Add("timeline", "Draw the scoped records of a service report over time");
  sub.Take("file", &options->file, "a report of 'bthal dump'; '-' reads standard input").Required();
  sub.Take("-o,--output", &options->output, "also write trace-event JSON, as trace viewers open it").Type("FILE");
  sub.Take("--min", &options->least_ms, "leave out what took less than so many milliseconds")
      .Type("MS")
      .Within(0, 1000000000);
  sub.Footer(
      "The table keeps the last 400 records, so take the report soon after what is of interest.\n"
      "\nExamples:\n"
      "  bthal dump -o report.txt && bthal timeline report.txt -o trace.json\n"
      "  bthal dump | bthal timeline - --min 5");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
