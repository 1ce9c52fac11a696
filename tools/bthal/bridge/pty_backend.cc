#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "bthal/bridge/backend.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

// The bridge keeps no terminal side open, so that it sees the peer go. A peer that goes takes its pseudo-terminal with
// it: what it left half said, or unread, is nobody else's.
class PtyBackend final : public Backend {
 public:
  explicit PtyBackend(std::string link) : link_(std::move(link)) {}
  ~PtyBackend() override { Close(); }

  // Only a link to a pseudo-terminal is in nobody's way: a bridge that was killed has left it.
  bool Check(std::string* error) override {
    struct stat there {};
    std::string target;
    if (lstat(link_.c_str(), &there) != 0) return true;
    if (S_ISLNK(there.st_mode) && ::android::base::Readlink(link_, &target) &&
        ::android::base::StartsWith(target, "/dev/pts/")) {
      return true;
    }
    *error = link_ + " is there already, and no link to a pseudo-terminal";
    return false;
  }

  bool Open(std::string* error) override {
    if (!Check(error)) return false;
    if (MakeTerminal() && WatchForPeers() && MakeLink()) return true;
    *error = StringPrintf("cannot make a pseudo-terminal at %s: %s", link_.c_str(), strerror(errno));
    Close();
    return false;
  }

  void Close() override {
    std::string target;
    if (!terminal_.empty() && ::android::base::Readlink(link_, &target) && target == terminal_) unlink(link_.c_str());
    terminal_.clear();
    master_.reset();
    openings_.reset();
  }

  std::string Name() const override { return "the pseudo-terminal " + link_; }
  int ready_fd() const override { return openings_.get(); }

  std::optional<Peer> Accept() override {
    Refuse();
    pollfd master{master_.get(), 0, 0};
    if (poll(&master, 1, 0) != 0) return std::nullopt;  // nothing but a hang-up is asked for
    return Peer{unique_fd(fcntl(master_.get(), F_DUPFD_CLOEXEC, 0)), /*whole_packets=*/false};
  }

  // Nobody can be kept from opening a terminal that another one has open.
  void Refuse() override {
    char events[4096];
    while (read(openings_.get(), events, sizeof(events)) > 0) continue;
  }

  // The link leads from one terminal to the next at once, and until then to one that is there.
  bool Release(std::string* error) override {
    const unique_fd last = std::move(master_);
    return Open(error);
  }

 private:
  bool MakeTerminal() {
    master_.reset(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    char name[64];
    if (!master_.ok() || grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0 ||
        ptsname_r(master_.get(), name, sizeof(name)) != 0) {
      return false;
    }
    const unique_fd slave(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios raw = {};
    if (!slave.ok() || tcgetattr(slave.get(), &raw) != 0) return false;
    cfmakeraw(&raw);
    if (tcsetattr(slave.get(), TCSANOW, &raw) != 0) return false;
    terminal_ = name;
    return true;
  }

  bool WatchForPeers() {
    openings_.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    return openings_.ok() && inotify_add_watch(openings_.get(), terminal_.c_str(), IN_OPEN) >= 0;
  }

  bool MakeLink() const {
    const std::string fresh = StringPrintf("%s.%d", link_.c_str(), getpid());
    unlink(fresh.c_str());
    if (symlink(terminal_.c_str(), fresh.c_str()) != 0) return false;
    if (rename(fresh.c_str(), link_.c_str()) == 0) return true;
    const int why = errno;
    unlink(fresh.c_str());
    errno = why;
    return false;
  }

  const std::string link_;
  std::string terminal_;  // empty while there is none
  unique_fd master_;
  unique_fd openings_;
};

}  // namespace

std::unique_ptr<Backend> MakePtyBackend(const std::string& link) { return std::make_unique<PtyBackend>(link); }

}  // namespace bthal::tool
