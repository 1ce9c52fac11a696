#include <android-base/stringprintf.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "bthal/bridge/socket_backend.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

class UnixBackend final : public SocketBackend {
 public:
  explicit UnixBackend(std::string path) : path_(std::move(path)) {}
  ~UnixBackend() override { Close(); }

  // Only a socket on which nobody listens any more is in nobody's way.
  bool Check(std::string* error) override {
    if (path_.size() >= sizeof(sockaddr_un::sun_path)) {
      *error = StringPrintf("%s is too long for a socket: %zu bytes are allowed", path_.c_str(),
                            sizeof(sockaddr_un::sun_path) - 1);
      return false;
    }
    struct stat there {};
    if (lstat(path_.c_str(), &there) != 0) return true;
    if (!S_ISSOCK(there.st_mode)) {
      *error = path_ + " is there already, and no socket";
      return false;
    }
    const unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const sockaddr_un address = Address();
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
        errno == ECONNREFUSED) {
      return true;
    }
    *error = "somebody listens on " + path_ + " already";
    return false;
  }

  bool Open(std::string* error) override {
    if (!Check(error)) return false;
    unlink(path_.c_str());
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // The mode of a socket that is not bound yet becomes that of its path: at no moment can anybody else connect.
    fchmod(socket.get(), 0600);
    const sockaddr_un address = Address();
    if (!Listen(std::move(socket), reinterpret_cast<const sockaddr*>(&address), sizeof(address), error)) return false;
    bound_ = lstat(path_.c_str(), &bound_as_) == 0;
    return true;
  }

  // What somebody else has put in its place stays.
  void Close() override {
    struct stat there {};
    if (bound_ && lstat(path_.c_str(), &there) == 0 && there.st_dev == bound_as_.st_dev &&
        there.st_ino == bound_as_.st_ino) {
      unlink(path_.c_str());
    }
    bound_ = false;
    SocketBackend::Close();
  }

  std::string Name() const override { return "the Unix socket " + path_; }

 private:
  sockaddr_un Address() const {
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
  }

  const std::string path_;
  struct stat bound_as_ {};
  bool bound_ = false;
};

}  // namespace

std::unique_ptr<Backend> MakeUnixBackend(const std::string& path) { return std::make_unique<UnixBackend>(path); }

}  // namespace bthal::tool
