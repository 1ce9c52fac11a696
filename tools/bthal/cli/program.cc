#include "bthal/cli/program.h"

#include <CLI/CLI.hpp>

#include "bthal/show/terminal.h"

namespace bthal::tool {

Program::Program(const std::string& name, const std::string& about) : app_(std::make_unique<CLI::App>(about, name)) {
  app_->require_subcommand(1);
}

Program::~Program() = default;

Command Program::Root() { return Command(app_.get(), &status_); }

void Program::Before(std::function<int(const std::string&)> check) {
  app_->parse_complete_callback([app = app_.get(), check = std::move(check)] {
    if (const int refused = check(app->get_subcommands().front()->get_name())) throw CLI::RuntimeError(refused);
  });
}

int Program::ReportBadInput(const std::string& kind, const std::string& what) const {
  std::string command = app_->get_name();
  for (const CLI::App* sub : app_->get_subcommands()) command += " " + sub->get_name();
  std::string line = what;
  // A word that is no subcommand counts as none at all there; people want to know which word.
  if (kind == "RequiredError" && !app_->remaining().empty()) {
    line = "there is no subcommand '" + app_->remaining().front() + "'";
  }
  for (char& c : line) c = c == '\n' ? ' ' : c;
  Complain(line + " (see '" + command + " --help')");
  return 2;
}

int Program::Run(int argc, char** argv) {
  try {
    app_->parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app_->exit(help);
  } catch (const CLI::RuntimeError& refused) {
    return refused.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return ReportBadInput(error.get_name(), error.what());
  }
  return status_;
}

}  // namespace bthal::tool
