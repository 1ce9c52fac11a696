// The owner of one file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace bthal::sim {

class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    Reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~Fd() { Reset(); }

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  void Reset(int fd = -1) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace bthal::sim
