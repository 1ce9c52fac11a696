#include "bthal/demo/demo_root.h"

#include <errno.h>
#include <fcntl.h>
#include <host/service_registry.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"

namespace bthal::tool {
namespace {

namespace fs = std::filesystem;
using ::android::base::unique_fd;

// The folder that a login gives its user alone; empty where there is none.
std::string RuntimeFolder() {
  const char* folder = getenv("XDG_RUNTIME_DIR");
  struct stat info = {};
  if (folder == nullptr || *folder != '/' || lstat(folder, &info) != 0) return "";
  return S_ISDIR(info.st_mode) && info.st_uid == geteuid() && (info.st_mode & 077) == 0 ? folder : "";
}

// Where temporary files go, by the user's wish; null for none.
const char* WantedTemporaryFolder() {
  const char* folder = getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : nullptr;
}

bool IsEmpty(const std::string& path) {
  std::error_code code;
  return fs::is_empty(path, code) && !code;
}

}  // namespace

// The same folder every time, so that the logs of the last demo are where one expects them; where others may write, a
// new one whose name they cannot know.
std::string DemoRoot::MakeFolder(std::string* error) const {
  const std::string runtime = RuntimeFolder();
  const char* wanted = WantedTemporaryFolder();
  std::string path = runtime + "/bthal-" + what_;
  bool made = false;
  if (!runtime.empty()) {
    made = mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
  } else {
    std::error_code code;
    const fs::path folder = fs::absolute(wanted != nullptr ? wanted : "/tmp", code);
    path = (folder / ("bthal-" + what_ + "-XXXXXX")).lexically_normal().string();
    made = mkdtemp(path.data()) != nullptr;
  }
  if (made) return path;
  const std::string why = strerror(errno);
  const std::string other = runtime.empty() && wanted != nullptr ? "correct TMPDIR, or choose one" : "choose one";
  *error = "cannot make the folder " + path + ": " + why + "; " + other + " with --root";
  return "";
}

// Of a folder that no demo made, nothing may go.
bool DemoRoot::Empty(std::string* error) const {
  const bool marked = faccessat(folder_.get(), Marker().c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
  if (!marked && !IsEmpty(path_)) {
    *error = path_ + " holds what no " + what_ + " has made; choose a folder with --root";
    return false;
  }
  RemoveAllIn(folder_.get(), {Marker()});
  const unique_fd marker(openat(folder_.get(), Marker().c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!marker.ok()) *error = "cannot write below " + path_ + ": " + strerror(errno);
  return marker.ok();
}

// By a supervisor, or by a service, be it one that only shows by what it publishes.
bool DemoRoot::IsInUse(std::string* error) const {
  setenv(kRootVariable, path_.c_str(), 1);
  *error = RunningThere();
  for (const auto& service : ::bthal::host::ListServices()) {
    if (error->empty() && service.alive) {
      *error = "a service is already running on " + path_ + " (pid " + std::to_string(service.pid) + ")";
    }
  }
  if (error->empty()) return false;
  *error += "; end it, or choose another folder with --root";
  return true;
}

bool DemoRoot::Prepare(const std::string& chosen, std::string* error) {
  ours_ = chosen.empty();
  std::error_code code;
  path_ = ours_ ? MakeFolder(error) : fs::absolute(chosen, code).lexically_normal().string();
  if (path_.empty()) return false;
  folder_ = OccupyRoot(path_, error);
  return folder_.ok() && !IsInUse(error) && (!ours_ || Empty(error));
}

bool DemoRoot::MakeLogFolder(std::string* error) const {
  std::error_code code;
  fs::create_directories(path_ + "/data/log", code);
  if (code) *error = "cannot write below " + path_ + ": " + code.message();
  return !code;
}

void DemoRoot::Clean(DemoOutcome outcome, bool keep) const {
  if (!ours_ || keep || outcome == DemoOutcome::kFailure) return;
  if (outcome == DemoOutcome::kSuccess) {
    RemoveAllIn(folder_.get(), {Marker(), "data"});
  } else if (RemoveAllIn(folder_.get())) {
    rmdir(path_.c_str());
  }
}

}  // namespace bthal::tool
