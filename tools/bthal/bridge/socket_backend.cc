#include "bthal/bridge/socket_backend.h"

#include <android-base/stringprintf.h>
#include <errno.h>
#include <string.h>

namespace bthal::tool {

using ::android::base::unique_fd;

bool SocketBackend::Listen(unique_fd socket, const sockaddr* address, socklen_t size, std::string* error) {
  // Somebody who is not served is to be told at once: the queue holds those that Refuse sends away.
  constexpr int kWaiting = 8;
  if (!socket.ok() || bind(socket.get(), address, size) != 0 || listen(socket.get(), kWaiting) != 0) {
    *error = ::android::base::StringPrintf("cannot listen on %s: %s", Name().c_str(), strerror(errno));
    return false;
  }
  listener_ = std::move(socket);
  return true;
}

std::optional<Peer> SocketBackend::Accept() {
  unique_fd connection(TEMP_FAILURE_RETRY(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)));
  if (!connection.ok()) return std::nullopt;
  Prepare(connection.get());
  return Peer{std::move(connection), /*whole_packets=*/false};
}

void SocketBackend::Refuse() {
  unique_fd(TEMP_FAILURE_RETRY(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)));
}

}  // namespace bthal::tool
