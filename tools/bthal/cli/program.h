// The program's whole command line: its subcommands, its help, and what is said to input that makes no sense.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bthal/cli/command.h"
#include "bthal/cli/description.h"

namespace bthal::tool {

class Program {
 public:
  Program(const std::string& name, const std::string& version, const std::string& about);
  ~Program();

  Command Root();
  // Called with the chosen subcommand's name before it runs; unless it returns 0, that is the program's exit status.
  void Before(std::function<int(const std::string&)> check);
  // Beside the subcommands: nothing and "help [SUBCOMMAND]" show help. For the package, "--completion SHELL" prints
  // what bash, zsh or fish loads, and "--manual DIR" writes the manual pages.
  int Run(int argc, char** argv);

 private:
  CommandDescription Describe() const;
  int Parse(std::vector<std::string> words);
  int ShowHelp(const std::vector<std::string>& of);
  int PrintCompletion(const std::string& shell) const;
  int WriteManual(const std::string& folder) const;
  int ReportBadInput(const std::string& what) const;

  std::unique_ptr<CLI::App> app_;
  const std::string version_;
  int status_ = 0;
};

}  // namespace bthal::tool
