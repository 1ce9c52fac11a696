#include <android-base/logging.h>
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>

#include "bthal/cmd/commands.h"
#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/show/terminal.h"

namespace {

constexpr char kAbout[] =
    "bthal - bring a Bluetooth controller up, talk to it, and look at what happened.\n"
    "\n"
    "  bthal demo                     everything once, on a virtual board, in a few seconds\n"
    "  bthal check                    what this machine lacks to run the service on real hardware\n"
    "  bthal hci read_bd_addr         one command to the controller, its answer in words\n"
    "\n"
    "The service and these commands meet below a device root, $BTHAL_ROOT; unset, they use the real machine.";

// What a library has to say below an error is the service's business, not that of a person at a terminal.
void LogErrorsOnly(android::base::LogId, android::base::LogSeverity severity, const char*, const char*, unsigned int,
                   const char* message) {
  if (severity >= android::base::ERROR) bthal::tool::Complain(message);
}

// For every command but those that choose a root themselves.
void RefuseForeignRoot(const CLI::App& app) {
  const char* root = getenv(bthal::tool::kRootVariable);
  std::string error;
  if (root == nullptr || *root == '\0' || app.got_subcommand("demo") || app.got_subcommand("board")) return;
  if (bthal::tool::RootIsOurs(root, &error)) return;
  throw CLI::RuntimeError(bthal::tool::Complain(error));
}

int ReportBadInput(const CLI::App& app, const CLI::ParseError& error) {
  std::string command = "bthal";
  for (const CLI::App* sub : app.get_subcommands()) command += " " + sub->get_name();
  std::string line = error.what();
  // A word that is no subcommand counts as none at all there; people want to know which word.
  if (error.get_name() == "RequiredError" && !app.remaining().empty()) {
    line = "there is no subcommand '" + app.remaining().front() + "'";
  }
  for (char& c : line) c = c == '\n' ? ' ' : c;
  bthal::tool::Complain(line + " (see '" + command + " --help')");
  return 2;
}

int Run(int argc, char** argv) {
  using namespace bthal::tool;
  CLI::App app(kAbout, "bthal");
  app.require_subcommand(1);
  int status = 0;
  for (auto* add : {AddDemo, AddBoard, AddSupervise, AddHci, AddDump, AddTimeline, AddSnoop, AddServices, AddProp,
                    AddConf, AddCheck, AddThread, AddFinder, AddAfh}) {
    add(app, &status);
  }
  app.parse_complete_callback([&app] { RefuseForeignRoot(app); });
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::RuntimeError& refused) {
    return refused.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return ReportBadInput(app, error);
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  android::base::SetLogger(LogErrorsOnly);
  signal(SIGPIPE, SIG_IGN);
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    return bthal::tool::Complain(error.what());
  }
}
