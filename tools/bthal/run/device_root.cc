#include "bthal/run/device_root.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/stringprintf.h>
#include <host/device_root.h>
#include <host/role.h>
#include <host/run_directory.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>

namespace bthal::tool {
namespace {

namespace fs = std::filesystem;
using ::android::base::unique_fd;

// Without a slash at its end, which would lead through a link.
std::string NameOf(const std::string& path) {
  const fs::path name = fs::absolute(path).lexically_normal();
  return (name.has_filename() || name == name.root_path() ? name : name.parent_path()).string();
}

// The folder itself: a link could be led elsewhere between two looks. Invalid where it is not ours, with one line in
// `error`, and, without a line, where there is nothing yet.
unique_fd OpenOurs(const std::string& path, std::string* error) {
  unique_fd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat info = {};
  if (!folder.ok() && errno == ENOENT) return {};
  if (!folder.ok() && (errno == ELOOP || errno == ENOTDIR)) {
    *error = "the device root " + path + " is no folder, or only a link to one";
  } else if (!folder.ok() || fstat(folder.get(), &info) != 0) {
    *error = "cannot open the device root " + path + ": " + strerror(errno);
  } else if (info.st_uid != geteuid() && info.st_uid != 0) {
    *error = "the device root " + path + " belongs to another user, uid " + std::to_string(info.st_uid);
  } else if ((info.st_mode & S_IWOTH) != 0) {
    *error = "every user may write into the device root " + path + "; choose a folder of your own";
  } else {
    return folder;
  }
  return {};
}

bool RemoveFolder(int above, const char* name) {
  const unique_fd folder(openat(above, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat info = {};
  struct stat info_above = {};
  return folder.ok() && fstat(folder.get(), &info) == 0 && fstat(above, &info_above) == 0 &&
         info.st_dev == info_above.st_dev && RemoveAllIn(folder.get()) && unlinkat(above, name, AT_REMOVEDIR) == 0;
}

}  // namespace

bool RootIsOurs(const std::string& path, std::string* error) {
  return OpenOurs(NameOf(path), error).ok() || error->empty();
}

std::string DeviceRoot() {
  std::string root = ::bthal::host::BelowDeviceRoot("/");
  if (root.size() > 1) root.pop_back();
  return root;
}

bool MeetingPlaceIsOpen(std::string* error) {
  const std::string folder = ::bthal::host::BelowDeviceRoot(::bthal::host::kRunDirectory);
  if (faccessat(AT_FDCWD, folder.c_str(), R_OK | X_OK, AT_EACCESS) == 0 || errno != EACCES) return true;
  *error = "cannot look into " + folder + ": " + strerror(errno);
  struct stat info = {};
  if (stat(folder.c_str(), &info) == 0 && info.st_uid != geteuid()) {
    const passwd* owner = getpwuid(info.st_uid);
    const std::string name = owner != nullptr ? owner->pw_name : "uid " + std::to_string(info.st_uid);
    *error += "; it is " + name + "'s: run this as that user, or as root";
  }
  return false;
}

std::string RunningThere() {
  using ::android::base::StringPrintf;
  for (const std::string_view role : {::bthal::host::kSupervisorRole, ::bthal::host::kServiceRole}) {
    if (const pid_t holder = ::bthal::host::HolderOfRole(role)) {
      return StringPrintf("a %s is already running on %s (pid %d)", std::string(role).c_str(), DeviceRoot().c_str(),
                          holder);
    }
  }
  return "";
}

unique_fd OccupyRoot(const std::string& path, std::string* error) {
  const std::string name = NameOf(path);
  std::error_code code;
  fs::create_directories(fs::path(name).parent_path(), code);
  if (!code && mkdir(name.c_str(), 0700) != 0 && errno != EEXIST) code.assign(errno, std::generic_category());
  if (code) {
    *error = "cannot make the folder " + name + ": " + code.message();
    return {};
  }
  unique_fd folder = OpenOurs(name, error);
  if (folder.ok() && flock(folder.get(), LOCK_EX | LOCK_NB) == 0) return folder;
  if (error->empty()) *error = "another board plays in " + name + "; stop it, or choose another folder";
  return {};
}

bool RemoveAllIn(int folder, std::initializer_list<std::string_view> kept) {
  unique_fd listed(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::android::base::Fdopendir(std::move(listed)), closedir);
  if (entries == nullptr) return false;
  bool all = true;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == ".." || std::ranges::find(kept, name) != kept.end()) continue;
    all &= unlinkat(folder, entry->d_name, 0) == 0 || RemoveFolder(folder, entry->d_name);
  }
  return all;
}

}  // namespace bthal::tool
