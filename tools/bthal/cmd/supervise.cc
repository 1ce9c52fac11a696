// bthal supervise: what init does on a device.

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/run/interrupt.h"
#include "bthal/run/supervisor.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

struct SuperviseOptions {
  std::vector<std::string> program;
  bool once = false;
  int max_restarts = -1;
};

int Run(const SuperviseOptions& options) {
  SupervisorOptions supervisor;
  supervisor.program = options.program;
  if (supervisor.program.empty()) supervisor.program = {ProgramBeside(kServiceProgram)};
  const std::string& path = supervisor.program.front();
  if (path.find('/') != std::string::npos && access(path.c_str(), X_OK) != 0) {
    return Complain("cannot run " + path + ": " + strerror(errno));
  }
  std::string error;
  if (!MeetingPlaceIsOpen(&error)) return Complain(error);
  supervisor.once = options.once;
  if (options.max_restarts >= 0) supervisor.max_restarts = options.max_restarts;
  CatchInterrupts();
  return Supervisor(std::move(supervisor)).Run();
}

}  // namespace

void AddSupervise(Command& app) {
  auto options = std::make_shared<SuperviseOptions>();
  Command sub = app.Add("supervise", "Run the service, restart it when it dies, and say why it died");
  sub.Take("program", &options->program, "another program and its arguments, after '--'");
  sub.Flag("--once", &options->once, "do not restart; end with the program's exit status (128 + signal)");
  sub.Take("--max-restarts", &options->max_restarts, "give up (exit status 1) after so many restarts")
      .Type("N")
      .Within(0, 1000000000);
  sub.Footer(
      "The service is meant to die whenever the controller can only be helped by a fresh start: it is restarted at\n"
      "once. Deaths of one kind (signal or exit status) in a row within a minute are answered more slowly: the second\n"
      "after 0.1 s, the third after 1 s, then twice as long each time, up to 5 s. The wake lock \"bthal_wakelock\" "
      "that\n"
      "a killed service leaves behind is released. What the service says is passed on line by line; lines that nobody\n"
      "reads are dropped and counted. Ctrl-C, SIGTERM and SIGHUP end the service in order (SIGTERM, after 5 s "
      "SIGKILL),\n"
      "then this program. Where the device root has a supervisor or another service already, it says so and ends with\n"
      "status 69: that one has to be ended first.\n"
      "\nExamples:\n"
      "  bthal supervise\n"
      "  BTHAL_ROOT=~/board bthal supervise --max-restarts 3\n"
      "  bthal supervise --once -- ./my-service --flag");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
