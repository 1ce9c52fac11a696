#include "bthal/check/port_holders.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <ctype.h>
#include <errno.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>

namespace bthal::tool {
namespace {

namespace fs = std::filesystem;

// The kernel's list of devices gives these numbers to pseudo-terminals.
constexpr unsigned kFirstPtyMajor = 136;
constexpr unsigned kLastPtyMajor = 143;

// A device's number says which it is, wherever its node is. Only pseudo-terminals are numbered anew in each container.
bool IsSame(const struct stat& a, const struct stat& b) {
  if (!S_ISCHR(a.st_mode) || !S_ISCHR(b.st_mode) || a.st_rdev != b.st_rdev) return false;
  const bool is_pty = major(a.st_rdev) >= kFirstPtyMajor && major(a.st_rdev) <= kLastPtyMajor;
  return !is_pty || a.st_dev == b.st_dev;
}

bool Has(const fs::path& process, const struct stat& device, bool* seen) {
  std::error_code error;
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end; file.increment(error)) {
    struct stat info = {};
    if (stat(file->path().c_str(), &info) == 0 && IsSame(info, device)) return true;
  }
  if (error.value() == EACCES || error.value() == EPERM) *seen = false;
  return false;
}

}  // namespace

PortHolders HoldersOf(const struct stat& device) {
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
