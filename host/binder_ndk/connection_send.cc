// Writing messages to the peer.
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "connection.h"
#include "object.h"

namespace bthal::binder {
namespace {

// A peer whose socket's buffer stays full for so long is taken for dead: it does not read any more.
constexpr std::chrono::milliseconds kWritePatience{5000};

// Takes `count` written bytes off the front of the parts.
void Advance(iovec** parts, size_t* part_count, size_t count) {
  while (*part_count != 0 && count >= (*parts)->iov_len) {
    count -= (*parts)->iov_len;
    ++*parts;
    --*part_count;
  }
  if (*part_count == 0) return;
  (*parts)->iov_base = static_cast<char*>((*parts)->iov_base) + count;
  (*parts)->iov_len -= count;
}

void Attach(msghdr* message, char* control, size_t control_size, int descriptor) {
  message->msg_control = control;
  message->msg_controllen = control_size;
  cmsghdr* header = CMSG_FIRSTHDR(message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  memcpy(CMSG_DATA(header), &descriptor, sizeof(descriptor));
}

}  // namespace

// STATUS_DEAD_OBJECT: the peer is gone. STATUS_FAILED_TRANSACTION: too large; nothing was sent then.
binder_status_t Connection::Send(Header header, AParcel* parcel, int descriptor) {
  std::vector<uint32_t> offsets;
  if (parcel != nullptr) {
    const size_t table_bytes = parcel->objects.size() * sizeof(uint32_t);
    if (parcel->objects.size() > kMaxObjects || parcel->data.size() + table_bytes > kMaxBodyBytes) {
      return STATUS_FAILED_TRANSACTION;
    }
    if (!parcel->objects.empty()) {
      const binder_status_t marked = MarkObjects(parcel);
      if (marked != STATUS_OK) return marked;
      for (const AParcel::Object& object : parcel->objects) offsets.push_back(object.offset);
    }
    header.objects = static_cast<uint16_t>(offsets.size());
    header.size = static_cast<uint32_t>(parcel->data.size() + table_bytes);
  }
  if (descriptor >= 0) header.flags = kHasDescriptor;
  iovec parts[] = {{&header, sizeof(header)},
                   {parcel == nullptr ? nullptr : parcel->data.data(), parcel == nullptr ? 0 : parcel->data.size()},
                   {offsets.data(), offsets.size() * sizeof(uint32_t)}};
  const std::lock_guard lock(write_mutex_);
  if (!alive()) return STATUS_DEAD_OBJECT;
  if (Write(parts, std::size(parts), descriptor)) return STATUS_OK;
  Close("it does not take what is written to it");
  return STATUS_DEAD_OBJECT;
}

bool Connection::Write(iovec* parts, size_t count, int descriptor) {
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  if (descriptor >= 0) Attach(&message, control, sizeof(control), descriptor);
  const auto deadline = std::chrono::steady_clock::now() + kWritePatience;
  for (;;) {
    const ssize_t written = TEMP_FAILURE_RETRY(sendmsg(fd(), &message, MSG_NOSIGNAL | MSG_DONTWAIT));
    if (written < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return false;
    if (written > 0) {
      Advance(&message.msg_iov, &message.msg_iovlen, static_cast<size_t>(written));
      message.msg_control = nullptr;  // went with the first byte
      message.msg_controllen = 0;
    }
    if (message.msg_iovlen == 0) return true;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd writable{fd(), POLLOUT, 0};
    if (left.count() <= 0 || TEMP_FAILURE_RETRY(poll(&writable, 1, static_cast<int>(left.count()))) < 0) return false;
  }
}

}  // namespace bthal::binder
