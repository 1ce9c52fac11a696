#include "bthal/cli/program.h"

#include <android-base/stringprintf.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <utility>

#include "bthal/cli/completion.h"
#include "bthal/cli/help_text.h"
#include "bthal/cli/manual.h"
#include "bthal/hci/lines/suggestion.h"
#include "bthal/show/output_file.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

// What the library shows for a value that has no name of its own.
constexpr char kAnyText[] = "TEXT";

ParameterDescription DescribeParameter(const CLI::Option& option) {
  ParameterDescription parameter;
  for (const std::string& name : option.get_snames()) parameter.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) parameter.names.push_back("--" + name);
  if (option.get_positional()) parameter.names = {option.get_name(true)};
  parameter.value = option.get_type_size_max() == 0 ? "" : option.get_type_name();
  if (parameter.IsArgument() && parameter.value.empty()) parameter.value = kAnyText;
  parameter.about = option.get_description();
  parameter.default_value = option.get_default_str();
  parameter.required = option.get_required();
  parameter.repeats = option.get_expected_max() > 1 || option.get_items_expected_max() > 1;
  return parameter;
}

CommandDescription DescribeCommand(const CLI::App& app) {
  CommandDescription command{.name = app.get_name(),
                             .about = app.get_description(),
                             .footer = app.get_footer(),
                             .parameters = {},
                             .commands = {}};
  for (const CLI::Option* option : app.get_options()) command.parameters.push_back(DescribeParameter(*option));
  for (const CLI::App* sub : app.get_subcommands({})) command.commands.push_back(DescribeCommand(*sub));
  return command;
}

// The program and the subcommands that were chosen so far, the innermost last.
std::vector<const CLI::App*> Chosen(const CLI::App& program) {
  std::vector<const CLI::App*> chosen = {&program};
  while (!chosen.back()->get_subcommands().empty()) chosen.push_back(chosen.back()->get_subcommands().back());
  return chosen;
}

std::string DidYouMean(const std::string& word, const CommandDescription& command) {
  std::vector<std::string> known;
  for (const CommandDescription& sub : command.commands) known.push_back(sub.name);
  for (const ParameterDescription& parameter : command.parameters) {
    if (!parameter.IsArgument()) known.insert(known.end(), parameter.names.begin(), parameter.names.end());
  }
  const std::string closest = Closest(word, known);
  return closest.empty() ? "" : "; did you mean '" + closest + "'?";
}

}  // namespace

Program::Program(const std::string& name, const std::string& version, const std::string& about)
    : app_(std::make_unique<CLI::App>(about, name)), version_(version) {
  app_->require_subcommand(1);
  app_->set_version_flag("--version", name + " " + version, "Print the version and exit");
}

Program::~Program() = default;

Command Program::Root() { return Command(app_.get(), &status_); }

void Program::Before(std::function<int(const std::string&)> check) {
  app_->parse_complete_callback([app = app_.get(), check = std::move(check)] {
    if (const int refused = check(app->get_subcommands().front()->get_name())) throw CLI::RuntimeError(refused);
  });
}

CommandDescription Program::Describe() const { return DescribeCommand(*app_); }

int Program::ReportBadInput(const std::string& what) const {
  const std::vector<const CLI::App*> chosen = Chosen(*app_);
  const CLI::App& last = *chosen.back();
  std::string command;
  for (const CLI::App* app : chosen) command += (command.empty() ? "" : " ") + app->get_name();
  std::string line = what;
  // A word that is no subcommand counts as none at all there; people want to know which word.
  const std::vector<std::string> unknown = app_->remaining(/*recurse=*/true);
  if (!unknown.empty()) {
    const bool option = unknown.front().starts_with('-') || last.get_subcommands({}).empty();
    if (!option) line = "there is no subcommand '" + unknown.front() + "'";
    if (option && &last == app_.get()) line = "there is no option '" + unknown.front() + "'";
    line += DidYouMean(unknown.front(), DescribeCommand(last));
  }
  std::ranges::replace(line, '\n', ' ');
  Complain(line + " (see '" + command + " --help')");
  return 2;
}

int Program::Parse(std::vector<std::string> words) {
  std::ranges::reverse(words);
  try {
    app_->parse(std::move(words));
  } catch (const CLI::Success& help) {
    std::ostringstream text;
    const int status = app_->exit(help, text, text);
    printf("%s", HelpOnTerminal(text.str()).c_str());
    return status;
  } catch (const CLI::RuntimeError& refused) {
    return refused.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return ReportBadInput(error.what());
  }
  return status_;
}

int Program::ShowHelp(const std::vector<std::string>& of) {
  CommandDescription command = Describe();
  for (const std::string& word : of) {
    const auto sub = std::ranges::find(command.commands, word, &CommandDescription::name);
    if (sub == command.commands.end()) {
      Complain("there is no subcommand '" + word + "'" + DidYouMean(word, command) + " (see '" + app_->get_name() +
               " --help')");
      return 2;
    }
    command = CommandDescription(*sub);
  }
  std::vector<std::string> words = of;
  words.emplace_back("--help");
  return Parse(std::move(words));
}

int Program::PrintCompletion(const std::string& shell) const {
  const CommandDescription program = Describe();
  if (shell != "bash" && shell != "zsh" && shell != "fish") {
    return Complain("there is no completion for '" + shell + "', only for bash, zsh and fish");
  }
  const std::string text = shell == "bash"  ? BashCompletion(program)
                           : shell == "zsh" ? ZshCompletion(program)
                                            : FishCompletion(program);
  printf("%s", text.c_str());
  return 0;
}

int Program::WriteManual(const std::string& folder) const {
  for (const auto& [name, text] : ManualPages(Describe(), version_)) {
    const std::string path = ::android::base::StringPrintf("%s/%s", folder.c_str(), name.c_str());
    std::string error;
    if (!WriteOutput(path, text, &error)) return Complain(error);
  }
  return 0;
}

int Program::Run(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty()) return ShowHelp({});
  if (words.front() == "help") return ShowHelp({words.begin() + 1, words.end()});
  if (words.size() == 2 && words.front() == "--completion") return PrintCompletion(words.back());
  if (words.size() == 2 && words.front() == "--manual") return WriteManual(words.back());
  if (words.front() == "--completion" || words.front() == "--manual") {
    Complain("'" + app_->get_name() + " " + words.front() + "' takes " +
             (words.front() == "--manual" ? "the folder to write to" : "bash, zsh or fish") + ", and nothing else");
    return 2;
  }
  return Parse(std::move(words));
}

}  // namespace bthal::tool
