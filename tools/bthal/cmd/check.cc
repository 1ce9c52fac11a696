// bthal check: what this machine lacks.

#include <android-base/stringprintf.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "bthal/check/machine_check.h"
#include "bthal/check/service_user.h"
#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/show/terminal.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;

constexpr int kStateWidth = 13;
constexpr size_t kNameColumn = kStateWidth + 2;
constexpr size_t kFoundColumn = kNameColumn + 18 + 2;

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
    case CheckState::kUnknown:
      return "unknown";
  }
  return "";
}

Colour ColourOf(const CheckResult& result) {
  if (result.state == CheckState::kOk) return Colour::kGood;
  return result.needed ? Colour::kBad : Colour::kWarn;
}

void Print(const CheckResult& result) {
  const std::string rest = StringPrintf("  %-18s  %s", result.name.c_str(), result.found.c_str());
  const std::string line = Folded(StringPrintf("%-*s", kStateWidth, Word(result.state)) + rest, kFoundColumn);
  printf("%s%s\n", Paint(ColourOf(result), line.substr(0, kStateWidth)).c_str(), line.substr(kStateWidth).c_str());
  if (result.remedy.empty()) return;
  const std::string kind = result.needed ? "needed: " : "useful: ";
  printf("%s\n", Folded(std::string(kNameColumn, ' ') + kind + result.remedy, kNameColumn + kind.size()).c_str());
}

void PrintHead(const std::string& line) {
  constexpr size_t kWordsColumn = 13;
  printf("%s\n", Folded(line, kWordsColumn).c_str());
}

// Who is looked for, and who it will be where an installed unit says so.
void PrintUser() {
  PrintHead("the service: as " + ServiceUserWords());
  const std::string unit_user = UnitsUser();
  const passwd* entry = unit_user.empty() ? nullptr : getpwnam(unit_user.c_str());
  if (entry == nullptr || entry->pw_uid == geteuid()) return;
  PrintHead("             its unit runs it as " + unit_user + ": bthal check --user " + unit_user + ", as root");
}

int Run(const std::string& user) {
  std::string error;
  if (!user.empty() && !BecomeServiceUser(user, &error)) return Complain(error);
  const std::string root = ::android::hardware::bluetooth::os::DevicePath("/");
  PrintHead("device root: " + (root == "/" ? "/ (the machine itself; BTHAL_ROOT is not set)" : root));
  PrintUser();
  printf("\n");
  const std::vector<CheckResult> results = CheckMachine();
  std::ranges::for_each(results, Print);
  const bool ready = std::ranges::none_of(
      results, [](const CheckResult& result) { return result.needed && result.state != CheckState::kOk; });
  printf("\n%s\n", ready ? "nothing that is needed is missing" : "not ready");
  return ready ? 0 : 1;
}

}  // namespace

void AddCheck(Command& app) {
  auto user = std::make_shared<std::string>();
  Command sub = app.Add("check", "Say what this machine lacks to run the service, and how to provide it");
  sub.Take("--user", user.get(), "look as this user, with what its systemd unit grants it (as root)").Type("USER");
  sub.Footer(
      "Looks only. Run it as the user that will run the service, or as root with --user. The one thing that it does "
      "is\n"
      "to set the controller's tty to its working speed and back, where it can see that nobody else has it. Exit "
      "status\n"
      "0 when everything that bring-up needs is there; what is merely useful does not count.");
  sub.Run([user] { return Run(*user); });
}

}  // namespace bthal::tool
