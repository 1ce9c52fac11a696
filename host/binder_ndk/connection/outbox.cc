#include "connection/outbox.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace bthal::binder {
namespace {

using android::base::unique_fd;

// The bytes of the parts behind the first `written`.
std::vector<uint8_t> BytesBehind(size_t written, const iovec* parts, size_t count) {
  std::vector<uint8_t> bytes;
  for (const iovec* part = parts; part != parts + count; ++part) {
    const size_t skipped = std::min(written, part->iov_len);
    const auto* begin = static_cast<const uint8_t*>(part->iov_base);
    bytes.insert(bytes.end(), begin + skipped, begin + part->iov_len);
    written -= skipped;
  }
  return bytes;
}

// The bytes written, none when the socket is full; -1 when it has failed. The descriptor goes with the first byte.
ssize_t Write(int socket, iovec* parts, size_t count, int descriptor) {
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  if (descriptor >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &descriptor, sizeof(descriptor));
  }
  const ssize_t written = TEMP_FAILURE_RETRY(sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT));
  return written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : written;
}

}  // namespace

bool Outbox::Send(int socket, iovec* parts, size_t count, int descriptor, bool awaited) {
  size_t size = 0;
  for (const iovec* part = parts; part != parts + count; ++part) size += part->iov_len;
  const ssize_t written = waiting_.empty() ? Write(socket, parts, count, descriptor) : 0;
  if (written < 0) return false;
  if (static_cast<size_t>(written) == size) return true;
  Rest rest{.bytes = BytesBehind(static_cast<size_t>(written), parts, count),
            .begin = 0,
            .descriptor = {},
            .awaited = awaited};
  // The sender may close its own before this goes.
  if (descriptor >= 0 && written == 0) rest.descriptor.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
  if (!awaited) unawaited_bytes_ += rest.bytes.size();
  waiting_.push_back(std::move(rest));
  return true;
}

bool Outbox::Flush(int socket) {
  while (!waiting_.empty()) {
    Rest& rest = waiting_.front();
    iovec part{rest.bytes.data() + rest.begin, rest.bytes.size() - rest.begin};
    const ssize_t written = Write(socket, &part, 1, rest.descriptor.get());
    if (written <= 0) return written == 0;
    rest.descriptor.reset();
    rest.begin += static_cast<size_t>(written);
    if (rest.begin != rest.bytes.size()) continue;
    if (!rest.awaited) unawaited_bytes_ -= rest.bytes.size();
    waiting_.pop_front();
  }
  return true;
}

void Outbox::Clear() {
  waiting_.clear();
  unawaited_bytes_ = 0;
}

}  // namespace bthal::binder
