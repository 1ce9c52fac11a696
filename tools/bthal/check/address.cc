#include <android-base/stringprintf.h>

#include "bthal/check/parts.h"
#include "conf/provisioned_address.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
namespace conf = ::android::hardware::bluetooth::conf;

constexpr char kName[] = "Bluetooth address";

}  // namespace

CheckResult Address() {
  const conf::AddressText source = conf::ReadAddressText();
  const char* place = source.from_device_tree ? conf::kDeviceTreeAddressPath : conf::kAddressProperty;
  conf::AddressBytes bytes{};
  if (conf::ParseBluetoothAddress(source.text, &bytes)) {
    return Ok(kName, StringPrintf("%02X:%02X:%02X:%02X:%02X:%02X (%s)", bytes[5], bytes[4], bytes[3], bytes[2],
                                  bytes[1], bytes[0], place));
  }
  const std::string set = StringPrintf("bthal prop set %s AA:BB:CC:DD:EE:FF", conf::kAddressProperty);
  const std::string holds = StringPrintf("%s holds '%s'", place, source.text.c_str());
  if (source.from_device_tree) {
    return {kName, CheckState::kWrong, true, holds,
            "correct it in the device tree: while that has an entry, the property is not looked at"};
  }
  if (!source.text.empty()) {
    return {kName, CheckState::kWrong, true, holds, "a ro. property stays until the next boot: reboot, then " + set};
  }
  return {kName, CheckState::kMissing, true,
          StringPrintf("neither %s nor %s", conf::kDeviceTreeAddressPath, conf::kAddressProperty), set};
}

}  // namespace bthal::tool
