// The command line of the program. A subcommand says what it takes; parsing, help, manual pages and the shells'
// completion are all made from that. The library that parses is included by the files of this folder alone: it is the
// heaviest of all.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace bthal::tool {

// An option, or an argument without a name, while it is described.
class Parameter {
 public:
  explicit Parameter(CLI::Option* option) : option_(option) {}

  // What the help shows for its value.
  Parameter& Type(const std::string& name);
  Parameter& ShowDefault();
  Parameter& ShowDefault(const std::string& text);
  Parameter& Within(int least, int most);
  Parameter& Within(double least, double most);
  Parameter& OneOf(const std::vector<std::string>& words);
  Parameter& Required();
  // Takes one value each time, so that what follows is something else.
  Parameter& OneValueEach();
  bool Given() const;

 private:
  CLI::Option* option_;
};

// A subcommand, while it is described. What it parses into must live until the command line has been parsed.
class Command {
 public:
  explicit Command(CLI::App* app, int* status) : app_(app), status_(status) {}

  Command Add(const std::string& name, const std::string& about);
  // `names` as in "-o,--output"; without a dash it is an argument.
  Parameter Take(const std::string& names, std::string* value, const std::string& about);
  Parameter Take(const std::string& names, std::vector<std::string>* values, const std::string& about);
  Parameter Take(const std::string& names, int* value, const std::string& about);
  Parameter Take(const std::string& names, size_t* value, const std::string& about);
  Parameter Take(const std::string& names, double* value, const std::string& about);
  Parameter Take(const std::string& names, std::function<void(int)> set, const std::string& about);
  Parameter Take(const std::string& names, const std::function<void(const std::string&)>& set,
                 const std::string& about);
  Parameter Flag(const std::string& names, bool* value, const std::string& about);
  // What the help ends with.
  void Footer(const std::string& text);
  // One of its own subcommands has to follow.
  void NeedsSubcommand();
  // Runs when the user asks for it; what it returns is the program's exit status.
  void Run(std::function<int()> run);

 private:
  CLI::App* app_;
  int* status_;
};

}  // namespace bthal::tool
