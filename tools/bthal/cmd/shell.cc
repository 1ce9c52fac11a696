// bthal shell: a prompt, and everything that it needs.
#include <cstdlib>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/board_options.h"
#include "bthal/cmd/commands.h"
#include "bthal/cmd/packet_options.h"
#include "bthal/hci/lines/script.h"
#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/run/interrupt.h"
#include "bthal/shell/shell.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

int Run(ShellOptions& options) {
  std::string error;
  const char* root = getenv(kRootVariable);
  if (options.attach && !options.playground.root.empty()) return Complain("--attach joins what runs on BTHAL_ROOT");
  if (options.attach && root != nullptr && *root != '\0' && !RootIsOurs(root, &error)) return Complain(error);
  if (!BoardOptionsAreClear(options.playground.board, &error)) return Complain(error);
  CatchInterrupts();
  options.session.time_style = options.playground.time_style;
  return Shell(options).Run();
}

}  // namespace

void AddShell(Command& app) {
  auto options = std::make_shared<ShellOptions>();
  Command sub = app.Add("shell", "Play: a virtual board, the service, and a prompt to talk HCI and break things");
  sub.Flag("--attach", &options->attach, "start nothing: join the service, and the board, that run on BTHAL_ROOT");
  sub.Flag("--take-over", &options->session.take_over, "end another bthal that has the HAL");
  sub.Take("--root", &options->playground.root,
           "play the device's root in DIR (default: $XDG_RUNTIME_DIR/bthal-shell, made anew)")
      .Type("DIR");
  AddBoardOptions(sub, &options->playground.board);
  AddViewOptions(sub, &options->session.view);
  AddTimeOption(sub, &options->playground.time_style);
  sub.Footer(
      std::string("Lines:\n") + kScriptHelp + "\n" + kShellHelp +
      "\nTab completes commands, parameters and their values. The history is kept in ~/.local/state/bthal/history\n"
      "($XDG_STATE_HOME). Without a terminal lines are read as they are, and the first that fails ends it (exit\n"
      "status 1). Board, service and root go with the shell.\n"
      "\nExamples:\n"
      "  bthal shell\n"
      "  bthal shell --chip-id 174 --fault no-answer,opcode=reset\n"
      "  echo read_bd_addr | bthal shell");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
