#include "bthal/run/io/unix_socket.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace bthal::tool {

using ::android::base::unique_fd;

unique_fd ConnectTo(const std::string& path, int type) {
  // Through its folder's descriptor: an address holds at most 107 bytes of a path.
  const unique_fd folder(open(::android::base::Dirname(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder.ok()) return {};
  unique_fd client(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  // Who listens but no longer takes connections, or what is sent, keeps nobody for ever.
  constexpr timeval kPatience{5, 0};
  setsockopt(client.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof(kPatience));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string name =
      ::android::base::StringPrintf("/proc/self/fd/%d/%s", folder.get(), ::android::base::Basename(path).c_str());
  if (name.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return {};
  }
  memcpy(address.sun_path, name.c_str(), name.size() + 1);
  if (connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) client.reset();
  return client;
}

}  // namespace bthal::tool
