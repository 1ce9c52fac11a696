#include <android-base/logging.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "bthal/cli/program.h"
#include "bthal/cli/standard_output.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/terminal.h"

namespace {

constexpr char kAbout[] =
    "bthal - bring a Bluetooth controller up, talk to it, and look at what happened.\n"
    "\n"
    "  bthal demo                     everything once, on a virtual board, in a few seconds\n"
    "  bthal shell                    the same board, with a prompt to play at\n"
    "  bthal check                    what this machine lacks to run the service on real hardware\n"
    "  bthal hci read_bd_addr         one command to the controller, its answer in words\n"
    "\n"
    "The service and these commands meet below a device root, $BTHAL_ROOT; unset, they use the real machine.";

// What a library has to say below an error is the service's business, not that of a person at a terminal.
void LogErrorsOnly(android::base::LogId, android::base::LogSeverity severity, const char*, const char*, unsigned int,
                   const char* message) {
  if (severity >= android::base::ERROR) bthal::tool::Complain(message);
}

// For every command but those that choose a root themselves, or need none.
int RefuseForeignRoot(const std::string& command) {
  const char* root = getenv(bthal::tool::kRootVariable);
  std::string error;
  constexpr std::string_view kNeedNone[] = {"demo", "shell", "board", "decode", "timeline"};
  if (root == nullptr || *root == '\0' || std::ranges::find(kNeedNone, command) != std::end(kNeedNone)) return 0;
  if (access(root, F_OK) == 0 || errno != ENOENT) {
    return bthal::tool::RootIsOurs(root, &error) ? 0 : bthal::tool::Complain(error);
  }
  return bthal::tool::Complain("the device root " + std::string(root) +
                               " (BTHAL_ROOT) does not exist; correct it, or make it: bthal board furnishes one");
}

int Run(int argc, char** argv) {
  using namespace bthal::tool;
  Program program("bthal", BTHAL_VERSION, kAbout);
  Command root = program.Root();
  for (auto* add : {AddDemo, AddShell, AddBoard, AddSupervise, AddHci, AddDump, AddTimeline, AddSnoop, AddDecode,
                    AddServices, AddProp, AddConf, AddCheck, AddThread, AddFinder, AddAfh, AddBridge}) {
    add(root);
  }
  program.Before(RefuseForeignRoot);
  return program.Run(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  android::base::SetLogger(LogErrorsOnly);
  // A peer that has gone, and a file that may not grow, are errors of the write.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  bthal::tool::WatchStandardOutput(bthal::tool::InterruptFd, [] { bthal::tool::EndAsIf(SIGPIPE); });
  int status = 0;
  try {
    status = Run(argc, argv);
  } catch (const std::exception& error) {
    status = bthal::tool::Complain(error.what());
  }
  return bthal::tool::EndStandardOutput(status);
}
