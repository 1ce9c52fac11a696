// bthal conf: the settings in force.

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
    printf("%-*s  %-*s  %s\n", static_cast<int>(name_width), setting.key.c_str(), static_cast<int>(value_width),
           setting.value.c_str(), Paint(is_default ? Colour::kFaint : Colour::kGood, setting.source).c_str());
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
