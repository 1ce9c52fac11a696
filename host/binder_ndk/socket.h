// The sockets at which the services' processes listen.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace bthal::binder {

// The folder of the sockets, a device path. A socket's name in it is "<pid>-<number>".
inline constexpr std::string_view kSocketDirectory = "/run/bthal/binder";

// Makes a socket that takes connections, and sets `*name` to its name; sweeps up those of dead processes. Invalid on
// failure, with a line in the log.
android::base::unique_fd ListenOnNewSocket(std::string* name);

// Connects to the socket; invalid when nobody listens there any more. Does not wait for the peer.
android::base::unique_fd ConnectSocket(const std::string& name);

// The process at the other end of a connected socket, as it was when it connected or began to listen.
struct Peer {
  pid_t pid = 0;
  uid_t uid = static_cast<uid_t>(-1);  // nobody's, when the kernel does not know
};
Peer PeerOf(int socket);

// Whether the descriptor, which a peer has given, is a stream socket of this machine that can be connected.
bool IsStreamSocket(int fd);

// Whether the peer's user is the own one or root.
bool IsTrusted(const Peer& peer);

// The process id in a socket's name; 0 when it is none.
int PidOf(std::string_view name);

}  // namespace bthal::binder
