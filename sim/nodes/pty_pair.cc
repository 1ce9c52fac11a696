#include "sim/nodes/pty_pair.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>

namespace bthal::sim {
namespace {

bool Fail(std::string* error, const std::string& what) {
  const int code = errno;
  *error = what + ": " + strerror(code);
  return false;
}

std::string LinkTarget(const std::string& link) {
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof(target));
  return length < 0 ? std::string() : std::string(target, static_cast<size_t>(length));
}

// Makes a link at `fresh` that may take the place of `link`.
bool MakeLink(const std::string& fresh, const std::string& link, const std::string& target, std::string* error) {
  struct stat existing {};
  if (lstat(link.c_str(), &existing) == 0 && !S_ISLNK(existing.st_mode)) {
    *error = link + " is there and is no symbolic link of a virtual board; remove it, or use another device root";
    return false;
  }
  unlink(fresh.c_str());
  return symlink(target.c_str(), fresh.c_str()) == 0 || Fail(error, "cannot make " + fresh);
}

}  // namespace

void PtyPair::Close() {
  if (!link_.empty() && LinkTarget(link_) == host_path_) unlink(link_.c_str());
  link_.clear();
  master_.Reset();
  keeper_.Reset();
}

bool PtyPair::Open(const std::string& link, std::string* error) {
  Fd master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  if (!master.ok() || grantpt(master.get()) != 0 || unlockpt(master.get()) != 0) {
    return Fail(error, "cannot make a pseudo-terminal for " + link + " (is /dev/pts mounted?)");
  }
  char path[PATH_MAX];
  if (ptsname_r(master.get(), path, sizeof(path)) != 0) return Fail(error, "cannot name the pseudo-terminal");
  Fd keeper(open(path, O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios attributes{};
  if (!keeper.ok() || tcgetattr(keeper.get(), &attributes) != 0) return Fail(error, std::string("cannot open ") + path);
  cfmakeraw(&attributes);
  if (tcsetattr(keeper.get(), TCSANOW, &attributes) != 0) return Fail(error, std::string("cannot set up ") + path);
  const std::string fresh = link + ".new";
  if (!MakeLink(fresh, link, path, error)) return false;
  const Fd node(open(fresh.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!node.ok()) return Fail(error, "cannot open " + fresh);
  if (!guardian_->Publish(fresh, link, node.get(), keeper.get(), error)) return false;
  master_ = std::move(master);
  keeper_ = std::move(keeper);
  host_path_ = path;
  link_ = link;
  return true;
}

bool PtyPair::HangUp(std::string* error) {
  Fd master = std::move(master_);
  Fd keeper = std::move(keeper_);
  // The fresh pair first: whoever reads end of file and opens the device again shall find it.
  const bool opened = Open(std::string(link_), error);
  // A mere close lets a reader that is quick enough see an I/O error before the end of file. Hanging up the host's end
  // does not, but takes the administrator's rights; without them the close must do.
  (void)ioctl(keeper.get(), TIOCVHANGUP);
  return opened;
}

}  // namespace bthal::sim
