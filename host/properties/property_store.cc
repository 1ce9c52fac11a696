// One file a property. Names say where it lies: "persist." ones outlive a reboot.
#define LOG_TAG "properties"

#include "host/property_store.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string_view>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/unique_fd.h>

#include "host/device_root.h"
#include "host/run_directory.h"

namespace {

using android::base::unique_fd;

constexpr std::string_view kReadOnlyPrefix = "ro.";
constexpr std::string_view kPersistentPrefix = "persist.";
constexpr std::string_view kVolatileDirectory = "/run/bthal/properties";
constexpr std::string_view kPersistentDirectory = "/var/lib/bthal/properties";
// What begins a file that is not yet a property: no property's name begins with a dot.
constexpr std::string_view kTemporaryPrefix = ".new-";

constexpr size_t kMaxValueBytes = 91;
constexpr off_t kMaxFileBytes = off_t{1} << 20;  // "ro." values have no limit of their own
constexpr size_t kMaxNameBytes = 200;            // with what a temporary file's name adds, within a file system's 255

std::string Below(std::string_view path) { return bthal::host::BelowDeviceRoot(path); }

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("._-@:").find(c) != std::string_view::npos;
}

// The platform's rule: letters, digits and "._-@:", no dot at either end, no two in a row.
bool IsLegalName(std::string_view name) {
  return !name.empty() && name.size() <= kMaxNameBytes && name.front() != '.' && name.back() != '.' &&
         name.find("..") == std::string_view::npos && std::all_of(name.begin(), name.end(), IsNameCharacter);
}

std::string_view DirectoryOf(std::string_view name) {
  return name.starts_with(kPersistentPrefix) ? kPersistentDirectory : kVolatileDirectory;
}

std::string FileOf(const std::string& name) { return Below(DirectoryOf(name)) + "/" + name; }

// The file's content. Nothing that keeps its reader waiting, or has no end, is a property.
bool ReadValue(const std::string& path, std::string* value) {
  const unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
  struct stat status {};
  return fd.get() >= 0 && fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kMaxFileBytes &&
         android::base::ReadFdToString(fd.get(), value);
}

// A file with the whole value in it, not yet under its own name.
bool WriteTemporary(const std::string& path, const std::string& value) {
  const unique_fd fd(
      TEMP_FAILURE_RETRY(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644)));
  if (fd.get() >= 0 && android::base::WriteStringToFd(value, fd.get())) return true;
  const int error = errno;
  if (fd.get() >= 0) unlink(path.c_str());
  errno = error;
  return false;
}

// Puts the file in its place: over an older value, except for a read-only property, of which the first one stays.
bool Publish(const std::string& temporary, const std::string& name) {
  const std::string file = FileOf(name);
  const bool once = name.starts_with(kReadOnlyPrefix);
  const bool done = (once ? link : rename)(temporary.c_str(), file.c_str()) == 0;
  const int error = errno;
  if (once || !done) unlink(temporary.c_str());
  errno = error;
  return done;
}

bool Store(const std::string& name, const std::string& value) {
  static std::atomic<unsigned> serial{0};
  const std::string directory = bthal::host::MakeDirectory(DirectoryOf(name));
  if (directory.empty()) return false;
  const std::string temporary = directory + "/" + std::string(kTemporaryPrefix) + std::to_string(getpid()) + "-" +
                                std::to_string(serial.fetch_add(1)) + "-" + name;
  return WriteTemporary(temporary, value) && Publish(temporary, name);
}

// Calls `visit` with the name of every file of the directory.
template <typename Visit>
void ForEachFile(const std::string& directory, Visit visit) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
  if (entries == nullptr) return;
  while (const dirent* entry = readdir(entries.get())) visit(std::string(entry->d_name));
}

}  // namespace

namespace android::base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
  std::string value;
  if (!IsLegalName(key) || !ReadValue(FileOf(key), &value) || value.empty()) return default_value;
  return value;
}

bool SetProperty(const std::string& key, const std::string& value) {
  if (!IsLegalName(key)) {
    LOG(ERROR) << "SetProperty: \"" << key << "\" cannot be a property's name";
    return false;
  }
  if (value.size() > kMaxValueBytes && !key.starts_with(kReadOnlyPrefix)) {
    LOG(ERROR) << "SetProperty: the value of " << key << " has " << value.size() << " bytes, " << kMaxValueBytes
               << " are allowed";
    return false;
  }
  if (Store(key, value)) return true;
  const int error = errno;
  if (error == EEXIST) {
    LOG(ERROR) << "SetProperty: " << key << " is read-only and was set before";
  } else {
    LOG(ERROR) << "SetProperty: cannot write " << DirectoryOf(key) << "/" << key << ": " << strerror(error) << " ("
               << error << ")";
  }
  return false;
}

}  // namespace android::base

namespace bthal::host {

std::vector<std::pair<std::string, std::string>> ListProperties() {
  std::vector<std::pair<std::string, std::string>> properties;
  for (const std::string_view directory : {kVolatileDirectory, kPersistentDirectory}) {
    ForEachFile(Below(directory), [&](const std::string& name) {
      std::string value;
      if (IsLegalName(name) && DirectoryOf(name) == directory && ReadValue(FileOf(name), &value)) {
        properties.emplace_back(name, value);
      }
    });
  }
  std::sort(properties.begin(), properties.end());
  return properties;
}

bool WipeVolatileProperties() {
  const std::string directory = Below(kVolatileDirectory);
  bool all = true;
  ForEachFile(directory, [&](const std::string& name) {
    if (name == "." || name == "..") return;
    if (unlink((directory + "/" + name).c_str()) == 0 || errno == ENOENT) return;
    LOG(ERROR) << "WipeVolatileProperties: cannot remove " << kVolatileDirectory << "/" << name << ": "
               << strerror(errno) << " (" << errno << ")";
    all = false;
  });
  return all;
}

}  // namespace bthal::host
