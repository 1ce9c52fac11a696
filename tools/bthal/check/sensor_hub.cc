// The sensor hub, which has the controller's UART where the service asks it for everything.
#include <android-base/properties.h>
#include <sys/stat.h>

#include "bthal/check/parts.h"
#include "conf/userial_type.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

namespace conf = ::android::hardware::bluetooth::conf;

constexpr char kName[] = "sensor hub";

}  // namespace

std::vector<CheckResult> SensorHub(const conf::Config& config) {
  const std::string path = std::string(conf::kSensorHubFolder) + "/" + conf::kSensorHubSocket;
  if (::android::base::GetBoolProperty(conf::kSensorHubDeadProperty, false)) {
    std::vector<CheckResult> results = {
        {kName, CheckState::kWrong, false,
         std::string("was lost for good in this boot (") + conf::kSensorHubDeadProperty + "): the tty is taken instead",
         "find out why from the service's log; a reboot forgets it"}};
    for (CheckResult& row : Port(config.uart_port)) results.push_back(std::move(row));
    return results;
  }
  struct stat info = {};
  if (stat(::android::hardware::bluetooth::os::DevicePath(path).c_str(), &info) == 0 && S_ISSOCK(info.st_mode)) {
    return {Ok(kName, path)};
  }
  return {{kName, CheckState::kMissing, true, "nothing plays one at " + path,
           std::string("let 'bthal board --hub' play it, or UserialType = 1 (tty) or 0 (HCI user channel) in ") +
               kSettingsFile}};
}

}  // namespace bthal::tool
