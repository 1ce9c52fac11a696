// A node of the kernel that remembers what is written to it, which a file does not.
#pragma once

#include "support/test.h"

namespace bthal::test {

class FifoNode {
 public:
  FifoNode(const TempRoot& root, const std::string& device_path) {
    const std::string path = root.Below(device_path);
    if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("cannot make " + path);
    fd_.reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }

  // Everything written so far, and since the last call of either.
  const std::string& History() {
    history_ += Take();
    return history_;
  }
  std::string Take() {
    std::string text;
    char bytes[256];
    ssize_t count;
    while ((count = read(fd_.get(), bytes, sizeof(bytes))) > 0) text.append(bytes, static_cast<size_t>(count));
    return text;
  }
  // From now on writes wait, until something has been taken.
  void FillUp() const {
    const std::string own = "/proc/self/fd/" + std::to_string(fd_.get());
    const unique_fd writer(open(own.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    while (write(writer.get(), "1", 1) == 1) continue;
  }
  // From now on writes fail.
  void CloseReader() { fd_.reset(); }

 private:
  unique_fd fd_;
  std::string history_;
};

}  // namespace bthal::test
