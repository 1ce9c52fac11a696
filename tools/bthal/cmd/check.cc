// bthal check: what this machine lacks.

#include <cstdio>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/machine_check.h"
#include "bthal/show/terminal.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

const char* Word(CheckState state) {
  switch (state) {
    case CheckState::kOk:
      return "ok";
    case CheckState::kMissing:
      return "missing";
    case CheckState::kNotPermitted:
      return "not permitted";
    case CheckState::kWrong:
      return "wrong";
  }
  return "";
}

int Run() {
  const std::string root = ::android::hardware::bluetooth::os::DevicePath("/");
  printf("device root: %s\n\n", root == "/" ? "/ (the machine itself; BTHAL_ROOT is not set)" : root.c_str());
  int needed = 0;
  int useful = 0;
  for (const CheckResult& result : CheckMachine()) {
    const bool ok = result.state == CheckState::kOk;
    const char* state = Word(result.state);
    char column[16];
    snprintf(column, sizeof(column), "%-13s", state);
    const Colour colour = ok ? Colour::kGood : result.needed ? Colour::kBad : Colour::kWarn;
    printf("%s  %-18s  %s\n", Paint(colour, column).c_str(), result.name.c_str(), result.found.c_str());
    if (ok) continue;
    printf("%-13s  %-18s  %s %s\n", "", "", result.needed ? "needed:" : "useful:", result.remedy.c_str());
    ++(result.needed ? needed : useful);
  }
  printf("\n%s\n", needed == 0 ? "nothing that is needed is missing" : "not ready");
  return needed == 0 ? 0 : 1;
}

}  // namespace

void AddCheck(Command& app) {
  Command sub = app.Add("check", "Say what this machine lacks to run the service, and how to provide it");
  sub.Footer(
      "Looks only, changes nothing. Run it as the user that will run the service. Exit status 0 when everything that\n"
      "bring-up needs is there; what is merely useful does not count.");
  sub.Run(Run);
}

}  // namespace bthal::tool
