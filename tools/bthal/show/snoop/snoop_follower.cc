#include "bthal/show/snoop/snoop_follower.h"

#include <android-base/file.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <utility>

#include "os/file_utils.h"

namespace bthal::tool {
namespace {

using ::android::base::unique_fd;

constexpr int kUncounted = 1 << 16;  // rotations: more than can be followed

using FileId = std::pair<dev_t, ino_t>;

// Of an open file, or else of what the path leads to; nothing where that is nothing.
std::optional<FileId> IdOf(const unique_fd& fd, const std::string& path = "") {
  struct stat info = {};
  if (fd.ok() ? fstat(fd.get(), &info) != 0 : stat(path.c_str(), &info) != 0) return std::nullopt;
  return FileId(info.st_dev, info.st_ino);
}

unique_fd OpenToRead(const std::string& path) { return unique_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC)); }

}  // namespace

std::string BackupOf(const std::string& log) {
  std::string real;
  return (::android::base::Realpath(log, &real) ? real : log) + ::android::hardware::bluetooth::os::kLastSuffix;
}

SnoopFollower::SnoopFollower(std::string path, std::function<void()> missed)
    : path_(std::move(path)),
      last_path_(BackupOf(path_)),
      missed_(std::move(missed)),
      watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

bool SnoopFollower::Poll(const std::function<void(const SnoopRecord&)>& show, std::string* error) {
  for (;;) {
    // First whether it has been replaced, then its rest: nothing is added to it after that.
    const bool current = fd_.ok() && !Replaced();
    if (fd_.ok() && !Drain(show, error)) return false;
    if (current) return true;
    std::string trouble;
    if (!TakeNext(&trouble)) {
      if (!trouble.empty()) *error = trouble;
      return trouble.empty();
    }
  }
}

// Opens what came after the file that is open. That is the log, if there was one rotation; after two it is the backup,
// and after more it is gone. False where there is nothing yet, or, with one line in `error`, where it cannot be opened.
bool SnoopFollower::TakeNext(std::string* error) {
  Files files = OpenFiles();
  const std::optional<FileId> last = IdOf(files.last);
  // A backup from before the open file is no part of what follows it.
  const bool rotated = fd_.ok() && rotations_ > 0 && last != IdOf(fd_);
  const bool take_last = rotated && files.last.ok();
  if (!take_last && !files.log.ok()) {
    if (files.log_error != ENOENT) *error = "cannot read " + path_ + ": " + strerror(files.log_error);
    return false;
  }
  const int followed = take_last ? 2 : 1;
  if (rotated && rotations_ > followed && missed_) missed_();
  fd_ = take_last ? std::move(files.last) : std::move(files.log);
  rotations_ = take_last ? 1 : 0;
  reader_ = BtsnoopReader();
  return true;
}

// A rotation makes the log the backup. As long as one and the same file is the backup, none has come between; it is
// kept open, or another could be given its number.
SnoopFollower::Files SnoopFollower::OpenFiles() {
  WatchRotations();
  for (;;) {
    Files files;
    files.last = OpenToRead(last_path_);
    const std::optional<FileId> before = IdOf(files.last, last_path_);
    files.log = OpenToRead(path_);
    files.log_error = errno;
    CountRotations();
    if (IdOf({}, last_path_) == before) return files;
  }
}

// Again each time: the folder may have come only now, or be another than before. A folder that cannot be watched leaves
// open how many rotations there were. Both sides of a rename are asked for, though one is counted: like events in a row
// are made one.
void SnoopFollower::WatchRotations() {
  // Between two logs of a rotation a link leads nowhere.
  if (access(path_.c_str(), F_OK) == 0) last_path_ = BackupOf(path_);
  const std::string folder = ::android::base::Dirname(last_path_);
  if (inotify_add_watch(watch_.get(), folder.c_str(), IN_MOVE) < 0) rotations_ = kUncounted;
}

void SnoopFollower::CountRotations() {
  const std::string last_name = ::android::base::Basename(last_path_);
  alignas(inotify_event) std::array<char, 4096> events;
  ssize_t size = 0;
  while ((size = TEMP_FAILURE_RETRY(read(watch_.get(), events.data(), events.size()))) > 0) {
    for (const char* at = events.data(); at < events.data() + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      if ((event->mask & IN_Q_OVERFLOW) != 0) rotations_ = kUncounted;
      if ((event->mask & IN_MOVED_TO) != 0 && last_name == event->name) ++rotations_;
      at += sizeof(inotify_event) + event->len;
    }
  }
}

bool SnoopFollower::Drain(const std::function<void(const SnoopRecord&)>& show, std::string* error) {
  std::array<uint8_t, 65536> piece;
  for (;;) {
    const ssize_t count = TEMP_FAILURE_RETRY(read(fd_.get(), piece.data(), piece.size()));
    if (count < 0) {
      *error = "cannot read " + path_ + ": " + strerror(errno);
      return false;
    }
    reader_.Feed({piece.data(), static_cast<size_t>(count)});
    while (std::optional<SnoopRecord> record = reader_.Next()) show(*record);
    if (!reader_.error().empty()) {
      *error = path_ + ": " + reader_.error();
      return false;
    }
    if (count == 0) return true;
  }
}

bool SnoopFollower::Replaced() const {
  const std::optional<FileId> named = IdOf({}, path_);
  return named && named != IdOf(fd_);  // deleted: there is no successor yet
}

}  // namespace bthal::tool
