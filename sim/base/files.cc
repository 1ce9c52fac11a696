#include "sim/base/files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>
#include <system_error>

#include "sim/base/fd.h"

namespace bthal::sim {

namespace {

constexpr mode_t kUsualMode = 0644;

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = TEMP_FAILURE_RETRY(write(fd, content.data(), content.size()));
    if (count < 0) return false;
    content.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

// Owner and permissions as those of the file that is there.
bool TakeAfter(int fd, const std::string& path) {
  struct stat old {};
  struct stat fresh {};
  if (fstat(fd, &fresh) != 0) return false;
  if (stat(path.c_str(), &old) != 0) return fchmod(fd, kUsualMode) == 0;
  const bool other = fresh.st_uid != old.st_uid || fresh.st_gid != old.st_gid;
  return (!other || fchown(fd, old.st_uid, old.st_gid) == 0) && fchmod(fd, old.st_mode & ALLPERMS) == 0;
}

}  // namespace

bool MakeFolder(const std::string& path, std::string* error) {
  std::error_code code;
  std::filesystem::create_directories(path, code);
  if (!code) return true;
  *error = "cannot make the folder " + path + ": " + code.message() + "; choose a device root that you may write to";
  return false;
}

bool MakeFoldersAbove(const std::string& path, std::string* error) {
  return MakeFolder(std::filesystem::path(path).parent_path().string(), error);
}

bool WriteFile(const std::string& path, const std::string& content, std::string* error) {
  if (!MakeFoldersAbove(path, error)) return false;
  std::string fresh = path + ".XXXXXX";
  const Fd file(mkostemp(fresh.data(), O_CLOEXEC));
  if (file.ok() && WriteAll(file.get(), content) && TakeAfter(file.get(), path) &&
      rename(fresh.c_str(), path.c_str()) == 0) {
    return true;
  }
  const int reason = errno;
  if (file.ok()) unlink(fresh.c_str());
  *error = "cannot write " + path + ": " + strerror(reason) + "; check the folder's owner and the free space";
  return false;
}

bool WriteIfAbsent(const std::string& path, const std::string& content, std::string* error) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored) || WriteFile(path, content, error);
}

}  // namespace bthal::sim
