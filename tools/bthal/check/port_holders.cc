#include "bthal/check/port_holders.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <ctype.h>
#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace bthal::tool {
namespace {

namespace fs = std::filesystem;

bool Has(const fs::path& process, dev_t device, bool* seen) {
  std::error_code error;
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end; file.increment(error)) {
    struct stat info = {};
    if (stat(file->path().c_str(), &info) == 0 && S_ISCHR(info.st_mode) && info.st_rdev == device) return true;
  }
  if (error.value() == EACCES || error.value() == EPERM) *seen = false;
  return false;
}

}  // namespace

PortHolders HoldersOf(dev_t device) {
  PortHolders holders;
  std::error_code error;
  for (const auto& process : fs::directory_iterator("/proc", error)) {
    const std::string number = process.path().filename();
    if (isdigit(static_cast<unsigned char>(number[0])) == 0 || number == std::to_string(getpid())) continue;
    if (!Has(process.path(), device, &holders.all_seen)) continue;
    std::string name;
    ::android::base::ReadFileToString(process.path() / "comm", &name);
    holders.known.push_back({static_cast<pid_t>(atoi(number.c_str())), ::android::base::Trim(name)});
  }
  if (error) holders.all_seen = false;
  return holders;
}

}  // namespace bthal::tool
