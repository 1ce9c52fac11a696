#include "support/pty.h"

#include <termios.h>

namespace bthal::test {

Pty::Pty() : controller_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  if (controller_.get() < 0 || grantpt(controller_.get()) != 0 || unlockpt(controller_.get()) != 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  host_path_ = ptsname(controller_.get());
  keeper_.reset(open(host_path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios attributes{};
  tcgetattr(keeper_.get(), &attributes);
  cfmakeraw(&attributes);
  tcsetattr(keeper_.get(), TCSANOW, &attributes);
}

void Pty::Write(const Bytes& bytes) const {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = TEMP_FAILURE_RETRY(write(controller_.get(), bytes.data() + done, bytes.size() - done));
    if (n <= 0) throw std::runtime_error("cannot write to the pseudo-terminal");
    done += static_cast<size_t>(n);
  }
}

Bytes Pty::Read(size_t count) const {
  constexpr int kPatienceMs = 10000;
  Bytes bytes(count);
  size_t done = 0;
  while (done < count) {
    pollfd ready{controller_.get(), POLLIN, 0};
    if (TEMP_FAILURE_RETRY(poll(&ready, 1, kPatienceMs)) <= 0) break;
    const ssize_t n = TEMP_FAILURE_RETRY(read(controller_.get(), bytes.data() + done, count - done));
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  bytes.resize(done);
  return bytes;
}

void Pty::HangUp() {
  controller_.reset();
  keeper_.reset();
}

}  // namespace bthal::test
