// What the program takes, as its commands have said it: what manual pages and completion are made from.
#pragma once

#include <string>
#include <vector>

namespace bthal::tool {

struct ParameterDescription {
  std::vector<std::string> names;  // with their dashes; that of an argument without
  std::string value;               // what stands for its value; empty for a flag
  std::string about;
  std::string default_value;
  bool required = false;
  bool repeats = false;

  bool IsArgument() const { return !names.front().starts_with('-'); }
};

struct CommandDescription {
  std::string name;
  std::string about;
  std::string footer;
  std::vector<ParameterDescription> parameters;
  std::vector<CommandDescription> commands;
};

}  // namespace bthal::tool
