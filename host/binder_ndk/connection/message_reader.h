// Cutting a peer's bytes into messages.
#pragma once

#include <android-base/unique_fd.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "connection/wire.h"
#include "parcel.h"

namespace bthal::binder {

struct Message {
  Header header;
  ParcelPtr body;  // its data alone
  android::base::unique_fd descriptor;
};

// One receive call brings as many messages as have come. Used by one thread at a time.
class MessageReader {
 public:
  enum class Outcome {
    kDrained,    // everything that had come was taken
    kMore,       // there may be more to take at once
    kEnd,        // the peer has hung up, or the socket has failed
    kMalformed,  // the peer does not keep to the format; nothing more is to be read
  };

  // Receives once from `fd`, waiting for the first byte when `wait` is set, and appends the messages that are complete.
  Outcome Receive(int fd, bool wait, std::vector<Message>* messages);

 private:
  ssize_t ReceiveBytes(int fd, bool wait, bool* with_descriptor);
  void MakeRoom();
  bool Cut(std::vector<Message>* messages);
  void DropStrayDescriptor();

  std::vector<uint8_t> buffer_;
  size_t begin_ = 0;  // of the first message that is not complete
  size_t end_ = 0;    // of what has come
  // Came with bytes that are in the buffer, and waits for its message to be cut.
  android::base::unique_fd descriptor_;
};

}  // namespace bthal::binder
