// bthal dump: the service's own report.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/binder_client.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

// On a terminal what is too wide for it is broken; that takes the whole report first.
int ShowOnTerminal() {
  const ::android::base::unique_fd report(memfd_create("report", MFD_CLOEXEC));
  std::string error;
  std::string text;
  if (!report.ok()) return Complain(std::string("cannot hold the report: ") + strerror(errno));
  if (!DumpService(report.get(), &error)) return Complain(error);
  if (lseek(report.get(), 0, SEEK_SET) != 0 || !::android::base::ReadFdToString(report.get(), &text)) {
    return Complain(std::string("cannot read the report: ") + strerror(errno));
  }
  printf("%s", Folded(text).c_str());
  return 0;
}

int Run(const std::string& path) {
  if (path.empty() && IsTerminal()) return ShowOnTerminal();
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
