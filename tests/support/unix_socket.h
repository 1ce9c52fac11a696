// Sockets in the file system.
#pragma once

#include <sys/un.h>

#include "support/test.h"

namespace bthal::test {

// Cut where the path is longer than an address holds.
inline sockaddr_un UnixAddress(const std::string& path) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

inline unique_fd ListenAt(const std::string& path, int type = SOCK_STREAM) {
  const sockaddr_un address = UnixAddress(path);
  unique_fd listener(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  EXPECT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0) << strerror(errno);
  EXPECT_EQ(listen(listener.get(), 8), 0) << strerror(errno);
  return listener;
}

inline bool ConnectAt(const unique_fd& peer, const std::string& path) {
  const sockaddr_un address = UnixAddress(path);
  return connect(peer.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

inline unique_fd ConnectedTo(const std::string& path, int type = SOCK_STREAM) {
  unique_fd peer(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  EXPECT_TRUE(ConnectAt(peer, path)) << strerror(errno);
  return peer;
}

}  // namespace bthal::test
