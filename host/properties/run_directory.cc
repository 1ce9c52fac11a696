#include "host/run_directory.h"

#include <errno.h>
#include <sys/stat.h>

#include "host/device_root.h"

namespace bthal::host {

std::string MakeDirectory(std::string_view path) {
  const std::string place = bthal::host::BelowDeviceRoot(path);
  const mode_t mode = path == kRunDirectory ? 0700 : 0755;
  if (mkdir(place.c_str(), mode) == 0 || errno == EEXIST) return place;
  const size_t slash = path.rfind('/');
  if (errno != ENOENT || slash == std::string_view::npos || slash == 0) {
    // The folders above a device root that is not there yet are nobody's device path.
    if (errno != ENOENT || place == path) return "";
    for (size_t end = place.find('/', 1); end != std::string::npos; end = place.find('/', end + 1)) {
      if (mkdir(place.substr(0, end).c_str(), 0755) != 0 && errno != EEXIST) return "";
    }
  } else if (MakeDirectory(path.substr(0, slash)).empty()) {
    return "";
  }
  return mkdir(place.c_str(), mode) == 0 || errno == EEXIST ? place : "";
}

}  // namespace bthal::host
