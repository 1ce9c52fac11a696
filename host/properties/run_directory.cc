#define LOG_TAG "run_directory"

#include "host/run_directory.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include <android-base/logging.h>

#include "host/device_root.h"

namespace bthal::host {
namespace {

// Makes the folder and those above it; false on failure, with errno set.
bool Make(std::string_view path) {
  const std::string place = BelowDeviceRoot(path);
  const mode_t mode = path == kRunDirectory ? 0700 : 0755;
  if (mkdir(place.c_str(), mode) == 0 || errno == EEXIST) return true;
  const size_t slash = path.rfind('/');
  if (errno != ENOENT || slash == std::string_view::npos || slash == 0) {
    // The folders above a device root that is not there yet are nobody's device path.
    if (errno != ENOENT || place == path) return false;
    for (size_t end = place.find('/', 1); end != std::string::npos; end = place.find('/', end + 1)) {
      if (mkdir(place.substr(0, end).c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
  } else if (!Make(path.substr(0, slash))) {
    return false;
  }
  return mkdir(place.c_str(), mode) == 0 || errno == EEXIST;
}

void Refuse(const std::string& place, uid_t owner) {
  static std::atomic<bool> said{false};
  if (!said.exchange(true)) {
    LOG(ERROR) << place << " belongs to user " << owner << ", not to user " << geteuid() << " or root: it is not used";
  }
  errno = EPERM;
}

}  // namespace

std::string MakeDirectory(std::string_view path) {
  return Make(path) && IsOwnDirectory(path) ? BelowDeviceRoot(path) : "";
}

bool IsOwnDirectory(std::string_view path) {
  const uid_t user = geteuid();
  for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string place = BelowDeviceRoot(path.substr(0, end));
    struct stat status {};
    if (lstat(place.c_str(), &status) != 0) return false;
    if (status.st_uid != 0 && status.st_uid != user) {
      Refuse(place, status.st_uid);
      return false;
    }
    if (end == std::string_view::npos || user == 0) return true;
  }
}

}  // namespace bthal::host
