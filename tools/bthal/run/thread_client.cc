#include "bthal/run/thread_client.h"

#include <android-base/stringprintf.h>
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bthal/run/io/unix_socket.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr size_t kLargestFrame = 65535;

}  // namespace

unique_fd ConnectToThreadSocket(const std::string& path, std::string* error) {
  unique_fd client = ConnectTo(path, SOCK_SEQPACKET);
  if (client.ok()) return client;
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
