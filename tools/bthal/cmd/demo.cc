// bthal demo: everything once.
#include <CLI/CLI.hpp>

#include <memory>

#include "bthal/cmd/board_options.h"
#include "bthal/cmd/commands.h"
#include "bthal/demo/demo.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

int Run(const DemoOptions& options) {
  std::string error;
  if (!FaultsAreClear(options.board, &error)) return Complain(error);
  CatchInterrupts();
  return Demo(options).Run();
}

}  // namespace

void AddDemo(CLI::App& app, int* status) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* sub = app.add_subcommand("demo", "Bring a controller up on a virtual board, and talk to it");
  sub->add_option("--root", options->root,
                  "play the device's root in DIR (default: $XDG_RUNTIME_DIR/bthal-demo, made anew)")
      ->type_name("DIR");
  AddBoardOptions(*sub, &options->board);
  sub->add_flag("--snoop", options->snoop, "switch the service's packet log on, and show it at the end");
  sub->add_flag("--no-accel", options->no_accel,
                "power the controller only when the client comes, and off when it goes");
  sub->add_flag("--keep", options->keep, "leave the whole device root behind, not only the logs");
  sub->footer(
      "Exit status 0 only if everything happened, as the client and the board saw it. Ctrl-C ends all of it.\n"
      "\nExamples:\n"
      "  bthal demo\n"
      "  bthal demo --snoop --pace\n"
      "  bthal demo --chip-id 174\n"
      "  bthal demo --fault no-answer,opcode=reset          the first reset is not answered (see bthal board --help)");
  sub->callback([options, status] { *status = Run(*options); });
}

}  // namespace bthal::tool
