#define LOG_TAG "binder.socket"

#include "socket.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <memory>

#include <android-base/logging.h>

#include "host/device_root.h"
#include "host/run_directory.h"

namespace bthal::binder {
namespace {

using android::base::unique_fd;
using bthal::host::BelowDeviceRoot;

constexpr int kBacklog = 64;
// A socket has this suffix until it takes connections, so that nobody sweeps it up before.
constexpr std::string_view kUnfinishedSuffix = ".new";
constexpr time_t kLongestToFinish = 60;  // seconds, for a few system calls

unique_fd OpenDirectory() {
  if (!bthal::host::IsOwnDirectory(kSocketDirectory)) return {};
  return unique_fd(
      TEMP_FAILURE_RETRY(open(BelowDeviceRoot(kSocketDirectory).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
}

// The address of a socket in an open folder. A socket's path has at most 107 bytes; a device root may well be longer.
sockaddr_un AddressOf(int directory, const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/%s", directory, name.c_str());
  return address;
}

std::string NewName() {
  uint32_t number = 0;
  if (getrandom(&number, sizeof(number), 0) != sizeof(number)) number = static_cast<uint32_t>(errno);
  return std::to_string(getpid()) + "-" + std::to_string(number);
}

// Whether a socket that does not take connections yet will never do so, its process having been killed meanwhile.
bool IsAbandoned(int directory, const std::string& name) {
  struct stat info {};
  return name.ends_with(kUnfinishedSuffix) && fstatat(directory, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
         time(nullptr) - info.st_mtime > kLongestToFinish;
}

// Removes the sockets at which nobody listens any more.
void Sweep(int directory, const std::string& own) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(BelowDeviceRoot(kSocketDirectory).c_str()), closedir);
  if (entries == nullptr) return;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name == own || (PidOf(name) == 0 && !IsAbandoned(directory, name))) continue;
    if (ConnectSocket(name).get() < 0 && errno == ECONNREFUSED) unlinkat(directory, name.c_str(), 0);
  }
}

}  // namespace

unique_fd ListenOnNewSocket(std::string* name) {
  const unique_fd directory = bthal::host::MakeDirectory(kSocketDirectory).empty() ? unique_fd() : OpenDirectory();
  *name = NewName();
  const std::string unfinished = *name + std::string(kUnfinishedSuffix);
  unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = AddressOf(directory.get(), unfinished);
  if (directory.get() < 0 || socket.get() < 0 ||
      bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(socket.get(), kBacklog) != 0 ||
      renameat(directory.get(), unfinished.c_str(), directory.get(), name->c_str()) != 0) {
    PLOG(ERROR) << "cannot listen in " << kSocketDirectory;
    return {};
  }
  Sweep(directory.get(), *name);
  return socket;
}

unique_fd ConnectSocket(const std::string& name) {
  const unique_fd directory = OpenDirectory();
  unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (directory.get() < 0 || socket.get() < 0) return {};
  const sockaddr_un address = AddressOf(directory.get(), name);
  if (TEMP_FAILURE_RETRY(connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address))) != 0) {
    return {};
  }
  // Readers of a connection decide themselves whether to wait.
  fcntl(socket.get(), F_SETFL, fcntl(socket.get(), F_GETFL) & ~O_NONBLOCK);
  return socket;
}

Peer PeerOf(int socket) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return {};
  return {credentials.pid, credentials.uid};
}

bool IsStreamSocket(int fd) {
  const auto is = [fd](int option, int expected) {
    int value = -1;
    socklen_t size = sizeof(value);
    return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 && value == expected;
  };
  return is(SO_DOMAIN, AF_UNIX) && is(SO_TYPE, SOCK_STREAM) && is(SO_ACCEPTCONN, 0);
}

bool IsTrusted(const Peer& peer) { return peer.uid == geteuid() || peer.uid == 0; }

int PidOf(std::string_view name) {
  int pid = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
  const bool good =
      error == std::errc() && end != name.data() + name.size() && *end == '-' && !name.ends_with(kUnfinishedSuffix);
  return good ? pid : 0;
}

}  // namespace bthal::binder
