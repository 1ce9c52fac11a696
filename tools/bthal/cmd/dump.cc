// bthal dump: the service's own report.
#include <cstdio>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/call_timeout.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/binder_client.h"
#include "bthal/show/output_file.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

int Run(const std::string& path) {
  std::string error;
  std::string report;
  if (!path.empty() && !MayWriteOutput(path, &error)) return Complain(error);
  if (!DumpService(&report, &error)) return Complain(error);
  if (path.empty()) {
    const std::string shown = Folded(report);
    fwrite(shown.data(), 1, shown.size(), stdout);
  } else if (!WriteOutput(path, report, &error)) {
    return Complain(error);
  }
  return 0;
}

}  // namespace

void AddDump(Command& app) {
  auto path = std::make_shared<std::string>();
  Command sub = app.Add("dump", "Print the service's own report: firmware, records, crash files, activity");
  sub.Take("-o,--output", path.get(), "write it to FILE").Type("FILE");
  sub.Footer(
      "Examples:\n"
      "  bthal dump\n"
      "  bthal dump -o report.txt && bthal timeline report.txt");
  RunWithCallTimeout(sub, [path] { return Run(*path); });
}

}  // namespace bthal::tool
