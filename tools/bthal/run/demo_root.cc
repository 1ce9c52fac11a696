#include "bthal/run/demo_root.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace bthal::tool {
namespace {

namespace fs = std::filesystem;

// The same folder every time, so that the logs of the last demo are where one expects them. Where that name belongs to
// someone else, a name of our own.
std::string DefaultPath() {
  const char* folder = getenv("TMPDIR");
  std::string path = std::string(folder == nullptr || *folder == '\0' ? "/tmp" : folder) + "/bthal-demo";
  struct stat info = {};
  if (lstat(path.c_str(), &info) != 0 || (S_ISDIR(info.st_mode) && info.st_uid == geteuid())) return path;
  return path + "-" + std::to_string(geteuid());
}

void RemoveBelow(const std::string& path, const std::string& except) {
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(path, ignored)) {
    if (entry.path().filename() != except) fs::remove_all(entry.path(), ignored);
  }
}

}  // namespace

bool DemoRoot::Occupy(const std::string& path, std::string* error) {
  lock_.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!lock_.ok()) {
    *error = "cannot open the folder " + path + ": " + strerror(errno);
    return false;
  }
  struct stat info = {};
  if (ours_ && (fstat(lock_.get(), &info) != 0 || info.st_uid != geteuid())) {
    *error = path + " belongs to someone else; choose a folder with --root";
    return false;
  }
  if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
    *error = "another demo is running in " + path + "; choose a folder with --root";
    return false;
  }
  return true;
}

bool DemoRoot::Prepare(const std::string& chosen, std::string* error) {
  ours_ = chosen.empty();
  std::string path = ours_ ? DefaultPath() : chosen;
  if (ours_ && mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    *error = "cannot make the folder " + path + ": " + strerror(errno) + "; choose another with --root";
    return false;
  }
  std::error_code code;
  if (!ours_ && !fs::create_directories(path, code) && code) {
    *error = "cannot make the folder " + path + ": " + code.message();
    return false;
  }
  path = fs::canonical(path, code).string();
  if (code || !Occupy(path, error)) {
    if (error->empty()) *error = "cannot use the folder " + path + ": " + code.message();
    return false;
  }
  path_ = path;
  if (ours_) RemoveBelow(path_, "");
  fs::create_directories(path_ + "/data/log", code);
  if (code) *error = "cannot write below " + path_ + ": " + code.message();
  return !code;
}

void DemoRoot::Clean(DemoOutcome outcome, bool keep) const {
  if (!ours_ || keep || path_.empty() || outcome == DemoOutcome::kFailure) return;
  if (outcome == DemoOutcome::kSuccess) {
    RemoveBelow(path_, "data");
    return;
  }
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace bthal::tool
