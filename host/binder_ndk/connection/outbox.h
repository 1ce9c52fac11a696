// What a peer has not taken yet.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace bthal::binder {

// Messages leave whole and in order; none waits for the peer to read. Used by one thread at a time.
class Outbox {
 public:
  bool empty() const { return waiting_.empty(); }
  // Bytes that wait of messages for which nobody in this process waits.
  size_t unawaited_bytes() const { return unawaited_bytes_; }

  // Writes to `socket` what it takes of the message (`count` parts, and `descriptor` unless -1) and keeps a copy of the
  // rest. `awaited`: its sender waits for an answer, so that there are never more of them than threads. False when the
  // socket has failed.
  bool Send(int socket, iovec* parts, size_t count, int descriptor, bool awaited);
  // Writes what it takes of what waits. False when the socket has failed.
  bool Flush(int socket);
  // Gives up what waits.
  void Clear();

 private:
  struct Rest {
    std::vector<uint8_t> bytes;
    size_t begin = 0;  // what was written of it
    android::base::unique_fd descriptor;
    bool awaited = false;
  };

  std::deque<Rest> waiting_;
  size_t unawaited_bytes_ = 0;
};

}  // namespace bthal::binder
