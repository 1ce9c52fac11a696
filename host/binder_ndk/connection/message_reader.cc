#include "connection/message_reader.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace bthal::binder {
namespace {

constexpr size_t kInitialBytes = size_t{16} * 1024;
// Received at most so many at once: those beyond the first are closed.
constexpr size_t kMaxDescriptors = 4;

bool IsWellFormed(const Header& header) {
  if (header.size > kMaxBodyBytes || header.objects > kMaxObjects || header.objects * sizeof(uint32_t) > header.size) {
    return false;
  }
  if ((header.flags & ~(kHasDescriptor | kInOrder)) != 0) return false;
  if ((header.flags & kInOrder) != 0 && (header.type != MessageType::kCall || header.nested != 0)) return false;
  const bool is_dump = header.type == MessageType::kCall && header.code == kDumpCode;
  const bool is_connect = header.type == MessageType::kConnect;
  if (((header.flags & kHasDescriptor) != 0) != (is_dump || is_connect)) return false;
  switch (header.type) {
    case MessageType::kCall:
    case MessageType::kReply:
      return true;
    case MessageType::kRelease:
    case MessageType::kConnect:
    case MessageType::kSkip:
    case MessageType::kExpress:
      return header.size == 0;
  }
  return false;
}

// Keeps the first descriptor of the message and closes the others.
android::base::unique_fd TakeDescriptors(msghdr* message) {
  android::base::unique_fd first;
  for (cmsghdr* control = CMSG_FIRSTHDR(message); control != nullptr; control = CMSG_NXTHDR(message, control)) {
    if (control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS) continue;
    const size_t count = (control->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int fd = -1;
      memcpy(&fd, CMSG_DATA(control) + i * sizeof(int), sizeof(fd));
      android::base::unique_fd owned(fd);
      if (first.get() < 0) first = std::move(owned);
    }
  }
  return first;
}

}  // namespace

MessageReader::Outcome MessageReader::Receive(int fd, bool wait, std::vector<Message>* messages) {
  MakeRoom();
  const size_t room = buffer_.size() - end_;
  bool with_descriptor = false;
  const ssize_t count = ReceiveBytes(fd, wait, &with_descriptor);
  // A peer that makes a socket of its own non-blocking under a thread that waits is not waited for.
  if (count < 0 && !wait && (errno == EAGAIN || errno == EWOULDBLOCK)) return Outcome::kDrained;
  if (count <= 0) return Outcome::kEnd;
  end_ += static_cast<size_t>(count);
  if (!Cut(messages)) return Outcome::kMalformed;
  // A receive call stops behind bytes that came with a descriptor, however much there is to come.
  return static_cast<size_t>(count) == room || with_descriptor ? Outcome::kMore : Outcome::kDrained;
}

ssize_t MessageReader::ReceiveBytes(int fd, bool wait, bool* with_descriptor) {
  iovec bytes{buffer_.data() + end_, buffer_.size() - end_};
  alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  const ssize_t count = TEMP_FAILURE_RETRY(recvmsg(fd, &message, MSG_CMSG_CLOEXEC | (wait ? 0 : MSG_DONTWAIT)));
  if (count < 0 || message.msg_controllen == 0) return count;
  android::base::unique_fd received = TakeDescriptors(&message);
  *with_descriptor = received.get() >= 0;
  if (received.get() >= 0) descriptor_ = std::move(received);
  return count;
}

// Leaves room for a first byte at least: the buffer grows with what has really come, not with what a header promises.
void MessageReader::MakeRoom() {
  if (begin_ == end_) {
    begin_ = end_ = 0;
    if (buffer_.size() > kInitialBytes) buffer_ = {};  // a large message has gone through
  }
  if (buffer_.empty()) buffer_.resize(kInitialBytes);
  if (end_ < buffer_.size()) return;
  if (begin_ != 0) {
    std::copy(buffer_.begin() + static_cast<ptrdiff_t>(begin_), buffer_.end(), buffer_.begin());
    end_ -= begin_;
    begin_ = 0;
  } else {
    buffer_.resize(std::min(2 * buffer_.size(), sizeof(Header) + kMaxBodyBytes));
  }
}

bool MessageReader::Cut(std::vector<Message>* messages) {
  while (end_ - begin_ >= sizeof(Header)) {
    Header header;
    memcpy(&header, buffer_.data() + begin_, sizeof(header));
    if (!IsWellFormed(header)) return false;
    if (end_ - begin_ - sizeof(Header) < header.size) break;
    const uint8_t* body = buffer_.data() + begin_ + sizeof(Header);
    Message message{header, NewParcel(), {}};
    message.body->data.assign(body, body + header.size);
    if ((header.flags & kHasDescriptor) != 0) {
      if (descriptor_.get() < 0) return false;
      message.descriptor = std::move(descriptor_);
    }
    messages->push_back(std::move(message));
    begin_ += sizeof(Header) + header.size;
  }
  DropStrayDescriptor();
  return true;
}

// A descriptor whose message is complete without it was not asked for, and is closed.
void MessageReader::DropStrayDescriptor() {
  if (descriptor_.get() < 0) return;
  Header header{};
  if (end_ - begin_ >= sizeof(Header)) {
    memcpy(&header, buffer_.data() + begin_, sizeof(header));
    if ((header.flags & kHasDescriptor) != 0) return;
  } else if (end_ != begin_) {
    return;
  }
  descriptor_.reset();
}

}  // namespace bthal::binder
