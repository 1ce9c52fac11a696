// bthal dump: the service's own report.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/binder_client.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

int Run(const std::string& path) {
  ::android::base::unique_fd file;
  if (!path.empty()) {
    file.reset(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.ok()) return Complain("cannot write " + path + ": " + strerror(errno));
  }
  std::string error;
  if (!DumpService(file.ok() ? file.get() : STDOUT_FILENO, &error)) return Complain(error);
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
  sub.Run([path] { return Run(*path); });
}

}  // namespace bthal::tool
