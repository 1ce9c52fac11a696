#include "os/device_path.h"

#include <cstdlib>

namespace android::hardware::bluetooth::os {

std::string DevicePath(std::string_view path) {
#ifndef __ANDROID__
  if (const char* root = std::getenv("BTHAL_ROOT"); root != nullptr && *root != '\0') {
    std::string below(root);
    while (below.size() > 1 && below.back() == '/') below.pop_back();
    if (below == "/") below.clear();
    if (path.empty() || path.front() != '/') below += '/';
    return below.append(path);
  }
#endif
  return std::string(path);
}

}  // namespace android::hardware::bluetooth::os
