#include "os/device_path.h"

#ifndef __ANDROID__
#include <host/device_root.h>
#endif

namespace android::hardware::bluetooth::os {

std::string DevicePath(std::string_view path) {
#ifdef __ANDROID__
  return std::string(path);
#else
  return ::bthal::host::BelowDeviceRoot(path);
#endif
}

}  // namespace android::hardware::bluetooth::os
