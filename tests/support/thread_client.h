// The Thread service's end of the dispatcher's socket.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "support/wait_for.h"

namespace bthal::test {

class ThreadClient {
 public:
  static constexpr size_t kLargestFrame = 8192;

  // Connects as soon as the service below device root `root` listens.
  explicit ThreadClient(const std::string& root) : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    const std::string path = root + "/data/vendor/bluetooth/thread_dispatcher_socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    connected_ =
        WaitFor([&] { return connect(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0; });
  }

  bool connected() const { return connected_; }

  bool Send(const std::vector<uint8_t>& frame) const {
    return send(fd_.get(), frame.data(), frame.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(frame.size());
  }

  // One frame; empty when the line has ended.
  std::vector<uint8_t> Receive() const {
    std::vector<uint8_t> frame(kLargestFrame + 1);
    const ssize_t size = TEMP_FAILURE_RETRY(recv(fd_.get(), frame.data(), frame.size(), 0));
    frame.resize(size < 0 ? 0 : static_cast<size_t>(size));
    return frame;
  }

  void HangUp() const { shutdown(fd_.get(), SHUT_RDWR); }

 private:
  android::base::unique_fd fd_;
  bool connected_ = false;
};

}  // namespace bthal::test
