#include "bthal/show/snoop/snoop_follower.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <optional>

namespace bthal::tool {

bool SnoopFollower::Poll(const std::function<void(const SnoopRecord&)>& show, std::string* error) {
  for (;;) {
    if (!fd_.ok()) {
      fd_.reset(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
      if (!fd_.ok() && errno != ENOENT) {
        *error = "cannot read " + path_ + ": " + strerror(errno);
        return false;
      }
      if (!fd_.ok()) return true;
      reader_ = BtsnoopReader();
    }
    // First whether it has been replaced, then its rest: nothing is added to it after that.
    const bool replaced = Replaced();
    if (!Drain(show, error)) return false;
    if (!replaced) return true;
    fd_.reset();
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
  struct stat ours = {};
  struct stat named = {};
  if (fstat(fd_.get(), &ours) != 0) return true;
  if (stat(path_.c_str(), &named) != 0) return false;  // deleted: there is no successor yet
  return ours.st_ino != named.st_ino || ours.st_dev != named.st_dev;
}

}  // namespace bthal::tool
