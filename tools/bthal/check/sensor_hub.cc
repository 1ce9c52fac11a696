// The sensor hub, which has the controller's UART where the service asks it for everything.
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bthal/check/parts.h"
#include "bthal/run/io/unix_socket.h"
#include "conf/userial_type.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

namespace conf = ::android::hardware::bluetooth::conf;
using ::android::base::StringPrintf;

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
  const std::string place = ::android::hardware::bluetooth::os::DevicePath(path);
  const std::string remedy =
      std::string("let 'bthal board --hub' play it, or UserialType = 1 (tty) or 0 (HCI user channel) in ") +
      kSettingsFile;
  struct stat info = {};
  if (stat(place.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) {
    return {{kName, CheckState::kMissing, true, "nothing plays one at " + path, remedy}};
  }
  if (info.st_uid != 0 && info.st_uid != geteuid()) {
    return {{kName, CheckState::kNotPermitted, true,
             StringPrintf("%s is user %u's, who plays none for the service", path.c_str(), info.st_uid),
             "let the service's user play it, or root"}};
  }
  CheckResult result = Node(kName, path, R_OK | W_OK, true, remedy);
  // The kernel refuses a socket of another type in one way where somebody has this one open and in another where nobody
  // has any more. Whoever plays the hub notices nothing.
  if (result.state == CheckState::kOk && !ConnectTo(place, SOCK_DGRAM).ok() && errno == ECONNREFUSED) {
    result = {kName, CheckState::kMissing, true, "nobody is left behind " + path, remedy};
  }
  return {std::move(result)};
}

}  // namespace bthal::tool
