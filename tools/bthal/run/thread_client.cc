#include "bthal/run/thread_client.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr size_t kLargestFrame = 65535;

}  // namespace

unique_fd ConnectToThreadSocket(const std::string& path, std::string* error) {
  // Through its folder's descriptor: an address holds at most 107 bytes of a path.
  const unique_fd folder(open(::android::base::Dirname(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  unique_fd client(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string name = StringPrintf("/proc/self/fd/%d/%s", folder.get(), ::android::base::Basename(path).c_str());
  if (folder.ok() && client.ok() && name.size() < sizeof(address.sun_path)) {
    memcpy(address.sun_path, name.c_str(), name.size() + 1);
    if (connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) return client;
  }
  *error = StringPrintf(
      "cannot reach %s: %s; the service serves it while a client has the HAL, with ThreadDispatcherEnabled and "
      "persist.bluetooth.thread_dispatcher.enabled true",
      path.c_str(), strerror(errno));
  return {};
}

bool SendFrame(int socket, const std::vector<uint8_t>& frame, std::string* error) {
  if (TEMP_FAILURE_RETRY(send(socket, frame.data(), frame.size(), MSG_NOSIGNAL)) >= 0) return true;
  *error = StringPrintf("cannot send: %s", errno == EPIPE ? "the service has closed the connection" : strerror(errno));
  return false;
}

std::optional<std::vector<uint8_t>> ReceiveFrame(int socket, std::string* error) {
  std::vector<uint8_t> frame(kLargestFrame);
  const ssize_t count = TEMP_FAILURE_RETRY(recv(socket, frame.data(), frame.size(), 0));
  if (count < 0) *error = StringPrintf("cannot receive: %s", strerror(errno));
  if (count <= 0) return std::nullopt;
  frame.resize(static_cast<size_t>(count));
  return frame;
}

}  // namespace bthal::tool
