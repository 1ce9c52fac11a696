// bthal conf: the settings in force.
#include <android-base/stringprintf.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
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
  return 0;
}

}  // namespace

void AddConf(Command& app) {
  Command sub = app.Add("conf", "Show the vendor settings in force, and where each comes from");
  auto only_set = std::make_shared<bool>(false);
  sub.Flag("--set", only_set.get(), "only those that a file sets");
  sub.Footer(
      "A service reads them when it starts: what is shown is what the next start will use. The later file wins:\n"
      "  /vendor/etc/bluetooth/bt_vendor.conf\n"
      "  /vendor/etc/bluetooth/bt_vendor_overlay.conf");
  sub.Run([=] { return Run(*only_set); });
}

}  // namespace bthal::tool
