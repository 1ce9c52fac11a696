// bthal snoop: the vendor packet log, one line a packet.

#include <cstdio>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/packet_line.h"
#include "bthal/show/snoop_follower.h"
#include "bthal/show/terminal.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

struct SnoopOptions {
  std::string file;
  bool once = false;
  bool verbose = false;
};

int Run(const SnoopOptions& options) {
  const std::string path =
      options.file.empty() ? ::android::hardware::bluetooth::os::DevicePath(kSnoopLog) : options.file;
  CatchInterrupts();
  SnoopFollower follower(path);
  const auto show = [&](const SnoopRecord& record) {
    printf("%s\n", SnoopLine(record).c_str());
    if (options.verbose) printf("%s", FieldLines(record.kind, record.packet).c_str());
  };
  bool told = false;
  do {
    std::string error;
    if (!follower.Poll(show, &error)) return Complain(error);
    fflush(stdout);
    if (follower.opened() || told) continue;
    if (options.once) {
      return Complain("no log at " + path + "; switch it on: bthal prop set " + kSnoopProperty + " true");
    }
    fprintf(stderr, "bthal: waiting for %s (switch it on: bthal prop set %s true)\n", path.c_str(), kSnoopProperty);
    told = true;
  } while (!options.once && SleepUnlessInterrupted(std::chrono::milliseconds(50)));
  if (options.once && follower.Cut()) return Complain(path + " ends within a record");
  return 0;
}

}  // namespace

void AddSnoop(Command& app) {
  auto options = std::make_shared<SnoopOptions>();
  Command sub = app.Add("snoop", "Follow the vendor packet log, one line a packet");
  sub.Take("file", &options->file, "another btsnoop file").Type("FILE");
  sub.Flag("--once", &options->once, "print what is there and end, instead of following it");
  sub.Flag("-v,--verbose", &options->verbose, "show every field of a packet, one a line");
  sub.Footer(
      "The service writes the log when it is opened with persist.bluetooth.vendor.btsnoop true, on a userdebug or eng\n"
      "build (ro.build.type) or with persist.bluetooth.btsnooplogmode set. Ctrl-C ends.\n"
      "\nExamples:\n"
      "  bthal prop set persist.bluetooth.vendor.btsnoop true\n"
      "  bthal snoop\n"
      "  bthal snoop --once saved.log");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
