// What a machine must have for the service to bring a real controller up, looked at without touching any of it.
#pragma once

#include <string>
#include <vector>

namespace bthal::tool {

enum class CheckState { kOk, kMissing, kNotPermitted, kWrong };

struct CheckResult {
  std::string name;
  CheckState state = CheckState::kOk;
  bool needed = false;  // without it bring-up fails; otherwise something is merely lost
  std::string found;    // what was looked at, or what is wrong with it
  std::string remedy;   // empty when ok
};

// Every check, in the order in which a bring-up needs things. Paths lie below the device root, if there is one.
std::vector<CheckResult> CheckMachine();

}  // namespace bthal::tool
