// The program's whole command line: its subcommands, and what is said to input that makes no sense.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "bthal/cli/command.h"

namespace bthal::tool {

class Program {
 public:
  Program(const std::string& name, const std::string& about);
  ~Program();

  Command Root();
  // Called with the chosen subcommand's name before it runs; unless it returns 0, that is the program's exit status.
  void Before(std::function<int(const std::string&)> check);
  int Run(int argc, char** argv);

 private:
  int ReportBadInput(const std::string& kind, const std::string& what) const;

  std::unique_ptr<CLI::App> app_;
  int status_ = 0;
};

}  // namespace bthal::tool
