// What a demo leaves behind: the chart, the logs, and the folder.
#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "bthal/demo/demo.h"
#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/journal_words.h"
#include "bthal/show/output_file.h"
#include "bthal/show/record_dump.h"
#include "bthal/show/snoop/snoop_follower.h"
#include "bthal/show/trace_json.h"

namespace bthal::tool {
namespace {

void Heading(const std::string& text) { printf("\n%s\n\n", Paint(Colour::kHeading, text).c_str()); }

void PrintLogs(std::vector<std::pair<std::string, const char*>> logs) {
  std::erase_if(logs, [](const auto& log) { return access(log.first.c_str(), F_OK) != 0; });
  constexpr size_t kUnder = 6;  // a name, not beside it: it may be long
  size_t width = 0;
  for (const auto& [path, what] : logs) width = std::max(width, path.size());
  for (const auto& [path, what] : logs) {
    const std::string line = ::android::base::StringPrintf("  %-*s  %s", static_cast<int>(width), path.c_str(), what);
    printf("%s\n", Folded(line, kUnder).c_str());
  }
}

}  // namespace

bool Demo::PrintChart() {
  std::string report;
  std::string error;
  if (!::android::base::ReadFileToString(root_.Log("report.txt"), &report)) return true;
  const std::vector<Span> spans = PairRecords(ParseRecordDump(report, &error));
  if (spans.empty()) return true;
  const bool written = WriteLog("bring-up.json", TraceJson(spans));
  Heading("Where the time of the bring-up went");
  printf("%s", BarChart(spans, TerminalWidth(), 0).c_str());
  return written;
}

void Demo::PrintSnoopLog() {
  Heading("The service's own packet log");
  std::vector<SnoopRecord> records;
  SnoopFollower log(root_.path() + kSnoopLog);
  std::string error;
  const bool whole = log.Poll([&](const SnoopRecord& record) { records.push_back(record); }, &error);
  for (const std::string& line : FoldedSnoopLines(records)) printf("%s", line.c_str());
  if (!whole) Complain(error);
  printf("\n%s\n", log.opened() ? CountWords(records).c_str() : "there is none");
}

bool Demo::WriteLog(const std::string& name, const std::string& text) const {
  std::string error;
  const bool written = WriteOutput(root_.Log(name), text, &error);
  if (!written) Complain(error);
  return written;
}

bool Demo::WriteJournal() const {
  std::string text;
  for (const sim::JournalEntry& entry : board_->Journal()) {
    text += JournalText({.to_file = true}, Elapsed(start_, entry.time) + "  ", entry);
  }
  return WriteLog("board.log", WithoutColours(text));
}

int Demo::Conclude(bool well) {
  {
    const auto lock = wire_.Hold();
    patch_bar_.Finish();
  }
  client_.reset();
  service_.Kill();
  if (board_ != nullptr) {
    board_->SetObserver({});
    board_->Stop();
  }
  if (Interrupted()) {
    board_.reset();
    root_.Clean(DemoOutcome::kInterrupted, options_.keep);
    printf("\ninterrupted; nothing is left running\n");
    return 128 + InterruptSignal();
  }
  if (board_ != nullptr) {
    const bool journal = WriteJournal();
    const bool chart = PrintChart();
    if (!journal || !chart) well = Fail("not all of its logs could be written");
    if (options_.snoop) PrintSnoopLog();
    board_.reset();
    root_.Clean(well ? DemoOutcome::kSuccess : DemoOutcome::kFailure, options_.keep);
    Heading("Logs");
    PrintLogs({{root_.Log("service.log"), "what the service said"},
               {root_.Log("board.log"), "everything that the board saw"},
               {root_.Log("report.txt"), "the service's report (bthal dump)"},
               {root_.Log("bring-up.json"), "the chart, for a trace viewer"},
               {root_.path() + kSnoopLog, "the packet log (bthal snoop --once FILE)"}});
  }
  if (well) {
    printf("\n%s in %.1f s.\n", Paint(Colour::kGood, "Everything happened").c_str(),
           std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count());
    return 0;
  }
  printf("\n");
  return Complain("demo failed: " + failure_);
}

}  // namespace bthal::tool
