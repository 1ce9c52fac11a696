#include "support/relay.h"

#include <android-base/file.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace bthal::bench {
namespace {

using ::android::base::unique_fd;

void AwaitReadable(int fd) {
  pollfd readable{fd, POLLIN, 0};
  TEMP_FAILURE_RETRY(poll(&readable, 1, -1));
}

void PassDown(int client, int port, size_t size) {
  std::array<uint8_t, Relay::kLargest> packet{};
  for (;;) {
    AwaitReadable(client);
    if (!ReadWhole(client, packet.data(), size) || !WriteWhole(port, packet.data(), size)) return;
    if (!WriteWhole(client, packet.data(), 1)) return;
  }
}

void PassUp(int port, int client, size_t size) {
  const sched_param priority{.sched_priority = 1};
  sched_setscheduler(0, SCHED_FIFO, &priority);
  std::array<uint8_t, 64 * Relay::kLargest> buffer{};
  size_t have = 0;
  for (;;) {
    AwaitReadable(port);
    const ssize_t n = TEMP_FAILURE_RETRY(read(port, buffer.data() + have, buffer.size() - have));
    if (n <= 0) return;
    have += static_cast<size_t>(n);
    size_t begin = 0;
    for (; have - begin >= size; begin += size) {
      uint8_t acknowledgement = 0;
      if (!WriteWhole(client, buffer.data() + begin, size) || !ReadWhole(client, &acknowledgement, 1)) return;
    }
    std::copy_n(buffer.begin() + static_cast<ptrdiff_t>(begin), have - begin, buffer.begin());
    have -= begin;
  }
}

// A process that does nothing else, and does not outlive this one.
template <typename Work>
pid_t Start(Work work) {
  const pid_t pid = fork();
  if (pid < 0) {
    perror("no process for the relay");
    abort();
  }
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  work();
  _exit(0);
}

void End(pid_t pid) {
  kill(pid, SIGKILL);
  TEMP_FAILURE_RETRY(waitpid(pid, nullptr, 0));
}

}  // namespace

bool ReadWhole(int fd, void* bytes, size_t count) { return android::base::ReadFully(fd, bytes, count); }

bool WriteWhole(int fd, const void* bytes, size_t count) { return android::base::WriteFully(fd, bytes, count); }

void MakeRaw(int fd) {
  termios attributes{};
  tcgetattr(fd, &attributes);
  cfmakeraw(&attributes);
  tcsetattr(fd, TCSANOW, &attributes);
}

Pty::Pty() : controller(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  grantpt(controller.get());
  unlockpt(controller.get());
  host.reset(open(ptsname(controller.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  MakeRaw(host.get());
}

Relay::Relay(int port, size_t down, size_t up) : down_size_(down), up_size_(up) {
  unique_fd calls;
  unique_fd callbacks;
  if (!android::base::Socketpair(SOCK_STREAM, &client_calls_, &calls) ||
      !android::base::Socketpair(SOCK_STREAM, &client_callbacks_, &callbacks)) {
    perror("no sockets for the relay");
    abort();
  }
  down_ = Start([&] { PassDown(calls.get(), port, down_size_); });
  up_ = Start([&] { PassUp(port, callbacks.get(), up_size_); });
  client_ = std::thread([this] { Receive(); });
}

Relay::~Relay() {
  shutdown(client_callbacks_.get(), SHUT_RDWR);
  client_.join();
  End(down_);
  End(up_);
}

void Relay::Send(const uint8_t* packet) {
  uint8_t acknowledgement = 0;
  WriteWhole(client_calls_.get(), packet, down_size_);
  ReadWhole(client_calls_.get(), &acknowledgement, 1);
}

void Relay::Receive() {
  std::array<uint8_t, kLargest> packet{};
  for (;;) {
    AwaitReadable(client_callbacks_.get());
    if (!ReadWhole(client_callbacks_.get(), packet.data(), up_size_)) return;
    if (++packets_ == awaited_) packets_.notify_all();
    if (!WriteWhole(client_callbacks_.get(), packet.data(), 1)) return;
  }
}

void Relay::WaitFor(uint64_t packets) {
  awaited_ = packets;
  for (uint64_t seen = packets_; seen < packets; seen = packets_) packets_.wait(seen);
}

}  // namespace bthal::bench
