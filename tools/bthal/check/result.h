// What one look at the machine has found.
#pragma once

#include <string>
#include <utility>

namespace bthal::tool {

enum class CheckState { kOk, kMissing, kNotPermitted, kWrong, kUnknown };

struct CheckResult {
  std::string name;
  CheckState state = CheckState::kOk;
  bool needed = false;  // without it bring-up fails; otherwise something is merely lost
  std::string found;    // what was looked at, or what is wrong with it
  std::string remedy;   // empty when ok
};

inline CheckResult Ok(std::string name, std::string found) {
  return {.name = std::move(name), .state = CheckState::kOk, .needed = false, .found = std::move(found), .remedy = ""};
}

}  // namespace bthal::tool
