#include "sim/nodes/guardian.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

namespace bthal::sim {
namespace {

constexpr size_t kMostNodes = 16;
constexpr size_t kMostDescriptors = 2;

// What travels with a message: the descriptors, while its bytes are the path.
union Attachment {
  cmsghdr header;
  char space[CMSG_SPACE(kMostDescriptors * sizeof(int))];
};

struct Guarded {
  char path[PATH_MAX];  // empty: a free place
  int descriptors[kMostDescriptors];
};

// From here to the end of Serve all runs in the child of a process with threads: system calls, and no allocation.
Guarded guarded[kMostNodes];

bool Receive(int channel) {
  Guarded fresh{{}, {-1, -1}};
  Attachment attachment{};
  iovec path{fresh.path, sizeof(fresh.path) - 1};
  msghdr message{};
  message.msg_iov = &path;
  message.msg_iovlen = 1;
  message.msg_control = &attachment;
  message.msg_controllen = sizeof(attachment);
  if (TEMP_FAILURE_RETRY(recvmsg(channel, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC)) <= 0) return false;
  if (const cmsghdr* header = CMSG_FIRSTHDR(&message)) {
    memcpy(fresh.descriptors, CMSG_DATA(header), header->cmsg_len - CMSG_LEN(0));
  }
  for (Guarded& place : guarded) {
    if (place.path[0] != '\0' && strcmp(place.path, fresh.path) != 0) continue;
    if (place.path[0] != '\0') {
      for (const int descriptor : place.descriptors) close(descriptor);
    }
    place = fresh;
    return true;
  }
  return true;
}

void RemoveIfOurs(const Guarded& node) {
  struct stat ours {};
  struct stat there {};
  if (fstat(node.descriptors[0], &ours) == 0 && lstat(node.path, &there) == 0 && ours.st_dev == there.st_dev &&
      ours.st_ino == there.st_ino) {
    unlink(node.path);
  }
}

int TakeLock(const char* lock) {
  if (lock[0] == '\0') return 0;
  const int file = open(lock, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  return file >= 0 && TEMP_FAILURE_RETRY(flock(file, LOCK_EX)) == 0 ? 0 : errno;
}

// `board` becomes readable when the board's process has ended.
[[noreturn]] void Serve(int channel, int board, const char* lock) {
  // Whatever else the board's process has open must not seem to be open still when it closes it.
  const auto [low, high] = std::minmax({static_cast<unsigned>(channel), static_cast<unsigned>(board)});
  if (low > 0) close_range(0, low - 1, 0);
  if (high > low + 1) close_range(low + 1, high - 1, 0);
  close_range(high + 1, ~0U, 0);
  // Out of reach of a terminal's Ctrl-C and of what is sent to the board's process group.
  setsid();
  prctl(PR_SET_NAME, "board guardian");
  const int locked = TakeLock(lock);
  if (send(channel, &locked, sizeof(locked), MSG_NOSIGNAL) < 0 || locked != 0) _exit(1);
  pollfd events[] = {{channel, POLLIN, 0}, {board, POLLIN, 0}};
  while (events[1].revents == 0 && (events[0].revents & POLLHUP) == 0) {
    if (poll(events, 2, -1) > 0 && (events[0].revents & POLLIN) != 0) Receive(channel);
  }
  while (Receive(channel)) {
  }
  for (const Guarded& node : guarded) {
    if (node.path[0] != '\0') RemoveIfOurs(node);
  }
  _exit(0);
}

bool Fail(std::string* error, const std::string& what, int code) {
  *error = what + ": " + strerror(code);
  return false;
}

}  // namespace

bool Guardian::Start(const std::string& lock, std::string* error) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    return Fail(error, "cannot make a channel to the board's guardian", errno);
  }
  channel_.Reset(ends[0]);
  Fd childs_end(ends[1]);
  const Fd board(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
  if (!board.ok()) return Fail(error, "cannot wait for the board's own end", errno);
  // No signal may run a handler of this process in the child, nor end it before the board.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  process_ = fork();
  if (process_ == 0) Serve(childs_end.get(), board.get(), lock.c_str());
  const int fork_error = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (process_ < 0) return Fail(error, "cannot start the board's guardian", fork_error);
  childs_end.Reset();
  int locked = EPIPE;
  if (TEMP_FAILURE_RETRY(recv(channel_.get(), &locked, sizeof(locked), 0)) < 0) locked = errno;
  return locked == 0 || Fail(error, "the board's guardian cannot begin with " + lock, locked);
}

bool Guardian::Publish(const std::string& fresh, const std::string& path, int node, int terminal,
                       std::string* error) const {
  Attachment attachment{};
  const int descriptors[kMostDescriptors] = {node, terminal};
  const size_t size = (terminal < 0 ? 1 : 2) * sizeof(int);
  iovec bytes{const_cast<char*>(path.c_str()), path.size()};
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = &attachment;
  message.msg_controllen = CMSG_SPACE(size);
  attachment.header.cmsg_level = SOL_SOCKET;
  attachment.header.cmsg_type = SCM_RIGHTS;
  attachment.header.cmsg_len = CMSG_LEN(size);
  memcpy(CMSG_DATA(&attachment.header), descriptors, size);
  // Queued is as good as read: the guardian empties its channel before it acts.
  if (TEMP_FAILURE_RETRY(sendmsg(channel_.get(), &message, MSG_NOSIGNAL)) < 0) {
    return Fail(error, "cannot have " + path + " guarded", errno);
  }
  return rename(fresh.c_str(), path.c_str()) == 0 || Fail(error, "cannot put " + path + " in place", errno);
}

void Guardian::Stop() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    TEMP_FAILURE_RETRY(waitpid(process_, nullptr, 0));
  }
  process_ = -1;
  channel_.Reset();
}

}  // namespace bthal::sim
