// The Thread service's end of the dispatcher's socket.
#pragma once

#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal::test {

class ThreadClient {
 public:
  static constexpr size_t kLargestFrame = 8192;

  // Connects as soon as the service below device root `root`, whose path may be too long for an address, listens. In a
  // stream (SOCK_STREAM) each frame is behind a byte 0x40 and its length.
  explicit ThreadClient(const std::string& root, int type = SOCK_SEQPACKET)
      : is_stream_(type == SOCK_STREAM), fd_(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
    const std::string link = "/tmp/bthal-thread-" + std::to_string(getpid());
    (void)!symlink((root + "/data/vendor/bluetooth/thread_dispatcher_socket").c_str(), link.c_str());
    connected_ = WaitFor([&] { return ConnectAt(fd_, link); });
    unlink(link.c_str());
  }

  bool connected() const { return connected_; }

  bool Send(const Bytes& frame) const {
    if (!is_stream_) return SendRaw(frame);
    return SendRaw(
        Joined({{0x40, static_cast<uint8_t>(frame.size()), static_cast<uint8_t>(frame.size() >> 8)}, frame}));
  }
  bool SendRaw(const Bytes& bytes) const {
    return send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }

  // The next frame; empty at the end of the conversation, or after a long silence.
  Bytes Receive() const {
    if (!is_stream_) return ReceiveRaw(65536, 0);
    const Bytes head = ReceiveRaw(3, MSG_WAITALL);
    if (head.size() < 3 || head[0] != 0x40) return {};
    return ReceiveRaw(head[1] | head[2] << 8, MSG_WAITALL);
  }

  void HangUp() const { shutdown(fd_.get(), SHUT_RDWR); }

 private:
  Bytes ReceiveRaw(size_t size, int flags) const {
    constexpr int kPatienceMs = 20000;
    pollfd readable{fd_.get(), POLLIN, 0};
    Bytes bytes(size);
    const ssize_t length = poll(&readable, 1, kPatienceMs) == 1 ? recv(fd_.get(), bytes.data(), size, flags) : 0;
    bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return bytes;
  }

  bool is_stream_;
  unique_fd fd_;
  bool connected_ = false;
};

}  // namespace bthal::test
