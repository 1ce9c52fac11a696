// bthal conf: the settings in force.
#include <android-base/stringprintf.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bthal/cli/command.h"
#include "bthal/cli/help_text.h"
#include "bthal/cmd/commands.h"
#include "bthal/show/known_names.h"
#include "bthal/show/terminal.h"
#include "conf/conf.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::hardware::bluetooth::conf::Config;
using ::android::hardware::bluetooth::conf::ConfigSetting;

int Run(bool only_set) {
  const std::vector<ConfigSetting> settings = Config::Preview().Settings();
  size_t name_width = 0;
  size_t value_width = 0;
  for (const ConfigSetting& setting : settings) {
    name_width = std::max(name_width, setting.key.size());
    value_width = std::max(value_width, setting.value.size());
  }
  for (const ConfigSetting& setting : settings) {
    const bool is_default = setting.source == "default";
    if (is_default && only_set) continue;
    const std::string line =
        Folded(StringPrintf("%-*s  %-*s  %s", static_cast<int>(name_width), setting.key.c_str(),
                            static_cast<int>(value_width), setting.value.c_str(), setting.source.c_str()));
    const size_t value_end = std::min(line.size(), name_width + 2 + value_width);
    printf("%s%s\n", line.substr(0, value_end).c_str(),
           Paint(is_default ? Colour::kFaint : Colour::kGood, line.substr(value_end)).c_str());
  }
  int status = 0;
  for (const std::string& problem : SettingsProblems()) status = Complain(problem);
  return status;
}

}  // namespace

void AddConf(Command& app) {
  Command sub = app.Add("conf", "Show the vendor settings in force, and where each comes from");
  auto only_set = std::make_shared<bool>(false);
  sub.Flag("--set", only_set.get(), "only those that a file sets");
  auto explain = std::make_shared<bool>(false);
  sub.Flag("--explain", explain.get(), "what each takes and does, and which part of the service acts on it");
  sub.Footer(
      "A service reads them when it starts: what is shown is what the next start will use. The later file wins:\n"
      "  /vendor/etc/bluetooth/bt_vendor.conf\n"
      "  /vendor/etc/bluetooth/bt_vendor_overlay.conf\n"
      "Names that are no settings and values that they do not take are told; the exit status is then 1. The service\n"
      "leaves such names out, and takes such values for 0, false, or what they begin with.\n"
      "\nSettings:\n" +
      Explained(KnownSettings()));
  sub.Run([=] {
    if (!*explain) return Run(*only_set);
    printf("%s", HelpOnTerminal(Explained(KnownSettings())).c_str());
    return 0;
  });
}

}  // namespace bthal::tool
