// bthal demo: everything once.

#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/board_options.h"
#include "bthal/cmd/commands.h"
#include "bthal/demo/demo.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

int Run(const DemoOptions& options) {
  std::string error;
  if (!BoardOptionsAreClear(options.board, &error)) return Complain(error);
  CatchInterrupts();
  return Demo(options).Run();
}

}  // namespace

void AddDemo(Command& app) {
  auto options = std::make_shared<DemoOptions>();
  Command sub = app.Add("demo", "Bring a controller up on a virtual board, and talk to it");
  sub.Take("--root", &options->root, "play the device's root in DIR (default: $XDG_RUNTIME_DIR/bthal-demo, made anew)")
      .Type("DIR");
  AddBoardOptions(sub, &options->board);
  sub.Flag("--snoop", &options->snoop, "switch the service's packet log on, and show it at the end");
  sub.Flag("--no-accel", &options->no_accel, "power the controller only when the client comes, and off when it goes");
  sub.Flag("--keep", &options->keep, "leave the whole device root behind, not only the logs");
  sub.Footer(
      "Exit status 0 only if everything happened, as the client and the board saw it. Ctrl-C ends all of it.\n"
      "\nExamples:\n"
      "  bthal demo\n"
      "  bthal demo --snoop --pace\n"
      "  bthal demo --chip-id 174\n"
      "  bthal demo --hub                                   a sensor hub between the service and the controller\n"
      "  bthal demo --fault no-answer,opcode=reset          the first reset is not answered (see bthal board --help)");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
