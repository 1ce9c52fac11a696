#include "bthal/show/output_file.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace bthal::tool {
namespace {

using ::android::base::unique_fd;

constexpr mode_t kUsualMode = 0666;

bool Refuse(const std::string& path, const std::string& why, std::string* error) {
  *error = "cannot write " + path + ": " + why;
  return false;
}

// Where the content goes in the end.
struct Place {
  std::string path;      // of no link
  struct stat old = {};  // what is there
  bool there = false;
  bool stream = false;  // to be written to as it is
};

bool IsStream(const struct stat& info) { return S_ISFIFO(info.st_mode) || S_ISCHR(info.st_mode); }

std::string WhatItIs(const struct stat& info) {
  return S_ISDIR(info.st_mode) ? "it is a folder; name a file in it" : "it is no regular file; choose another name";
}

// A file that is to take the place of one of another user's could not be given to him by anyone but root.
bool MayReplace(const Place& place, std::string* error) {
  if (!place.there) return true;
  if (!S_ISREG(place.old.st_mode)) return Refuse(place.path, WhatItIs(place.old), error);
  if (faccessat(AT_FDCWD, place.path.c_str(), W_OK, AT_EACCESS) != 0) {
    return Refuse(place.path, strerror(errno), error);
  }
  if (place.old.st_uid == geteuid() || geteuid() == 0) return true;
  return Refuse(place.path, "it belongs to another user; choose another name", error);
}

bool FindPlace(const std::string& path, Place* place, std::string* error) {
  place->path = path;
  place->there = stat(path.c_str(), &place->old) == 0;
  if (!place->there && errno != ENOENT) return Refuse(path, strerror(errno), error);
  place->stream = place->there && IsStream(place->old);
  if (place->stream) return true;
  struct stat link = {};
  if (!place->there && lstat(path.c_str(), &link) == 0) return Refuse(path, "it is a link that leads nowhere", error);
  if (place->there && !::android::base::Realpath(path, &place->path)) return Refuse(path, strerror(errno), error);
  if (!MayReplace(*place, error)) return false;
  const std::string folder = ::android::base::Dirname(place->path);
  if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0) return true;
  const int reason = errno;
  return Refuse(path, "the folder " + folder + ": " + strerror(reason), error);
}

bool WriteAll(int fd, std::string_view content) {
  return ::android::base::WriteFully(fd, content.data(), content.size());
}

bool WriteStream(const std::string& path, std::string_view content, std::string* error) {
  const unique_fd stream(TEMP_FAILURE_RETRY(open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC)));
  return (stream.ok() && WriteAll(stream.get(), content)) || Refuse(path, strerror(errno), error);
}

mode_t ModeOf(const Place& place) {
  if (place.there) return place.old.st_mode & ALLPERMS;
  const mode_t mask = umask(0);
  umask(mask);
  return kUsualMode & ~mask;
}

// Owner first: a change of owner takes set-id bits away.
bool Dress(int fd, const Place& place) {
  struct stat fresh = {};
  if (fstat(fd, &fresh) != 0) return false;
  const bool other = place.there && (fresh.st_uid != place.old.st_uid || fresh.st_gid != place.old.st_gid);
  return (!other || fchown(fd, place.old.st_uid, place.old.st_gid) == 0) && fchmod(fd, ModeOf(place)) == 0;
}

bool Replace(const Place& place, std::string_view content, std::string* error) {
  std::string fresh = ::android::base::Dirname(place.path) + "/.bthal-XXXXXX";
  const unique_fd file(mkostemp(fresh.data(), O_CLOEXEC));
  if (!file.ok()) return Refuse(place.path, strerror(errno), error);
  if (WriteAll(file.get(), content) && Dress(file.get(), place) && rename(fresh.c_str(), place.path.c_str()) == 0) {
    return true;
  }
  const int reason = errno;
  unlink(fresh.c_str());
  return Refuse(place.path, strerror(reason), error);
}

bool AreSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Whether a file made at the one would then be at the other.
bool AreOneName(const std::string& one, const std::string& other) {
  struct stat folder = {};
  struct stat other_folder = {};
  return ::android::base::Basename(one) == ::android::base::Basename(other) &&
         stat(::android::base::Dirname(one).c_str(), &folder) == 0 &&
         stat(::android::base::Dirname(other).c_str(), &other_folder) == 0 && AreSame(folder, other_folder);
}

}  // namespace

bool MayWriteOutput(const std::string& path, std::string* error) {
  Place place;
  return FindPlace(path, &place, error);
}

bool WriteOutput(const std::string& path, std::string_view content, std::string* error) {
  Place place;
  if (!FindPlace(path, &place, error)) return false;
  return place.stream ? WriteStream(path, content, error) : Replace(place, content, error);
}

bool AreOneFile(const std::string& one, const std::string& other) {
  struct stat file = {};
  struct stat other_file = {};
  const bool there = stat(one.c_str(), &file) == 0;
  const bool other_there = stat(other.c_str(), &other_file) == 0;
  if (!there && !other_there) return AreOneName(one, other);
  return there && other_there && S_ISREG(file.st_mode) && AreSame(file, other_file);
}

}  // namespace bthal::tool
