#include "bthal/run/power_switch.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include "os/device_path.h"

namespace bthal::tool {

std::string FindPowerSwitch() {
  using ::android::hardware::bluetooth::os::DevicePath;
  std::string type;
  for (int i = 0;; ++i) {
    std::string entry = "/sys/class/rfkill/rfkill" + std::to_string(i);
    if (!::android::base::ReadFileToString(DevicePath(entry + "/type"), &type, true)) return "";
    if (::android::base::Trim(type) == "bluetooth") return entry;
  }
}

}  // namespace bthal::tool
