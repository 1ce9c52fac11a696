// The least that a service could be: two processes that pass packets of known sizes on, between a client and a port. As
// a service must, each waits until its descriptor can be read before it reads, has each packet acknowledged or
// acknowledges it, as a call of the interface is, and receives with the priority of the service's receive thread, where
// the system grants it.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace bthal::bench {

// A raw terminal. `controller` and `host` are its two ends; -1 where there is none to be had.
struct Pty {
  Pty();
  android::base::unique_fd controller;
  android::base::unique_fd host;
};

// Puts a terminal into the mode of a port.
void MakeRaw(int fd);
// Whether all that is asked for could be read, or written.
bool ReadWhole(int fd, void* bytes, size_t count);
bool WriteWhole(int fd, const void* bytes, size_t count);

class Relay {
 public:
  // `port` has its reader and writer here for as long as this lives. Packets have `down` bytes from the client and `up`
  // bytes to it, at most kLargest.
  Relay(int port, size_t down, size_t up);
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;
  ~Relay();

  static constexpr size_t kLargest = 1026;

  // As the client, a packet of the size that was said: it is on its way when this returns.
  void Send(const uint8_t* packet);
  // Packets that have come so far.
  uint64_t packets() const { return packets_; }
  // Until there are as many. One thread at a time.
  void WaitFor(uint64_t packets);

 private:
  void Receive();

  const size_t down_size_;
  const size_t up_size_;
  android::base::unique_fd client_calls_;
  android::base::unique_fd client_callbacks_;
  pid_t down_ = -1;
  pid_t up_ = -1;
  std::atomic<uint64_t> packets_{0};
  std::atomic<uint64_t> awaited_{0};
  std::thread client_;
};

}  // namespace bthal::bench
