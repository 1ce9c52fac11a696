// Runs a program to its end and keeps what it printed.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace bthal::test {

struct ProgramResult {
  int status = -1;  // exit status; 128 + signal when it was killed; -1 when it did not end in time
  std::string out;
  std::string error;
};

// `input` becomes its standard input.
ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::string& input = "",
                         std::chrono::seconds patience = std::chrono::seconds(60));

// The same of bthal with these arguments.
ProgramResult Bthal(std::vector<std::string> arguments, const std::string& input = "");

}  // namespace bthal::test
