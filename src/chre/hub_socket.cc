// The hub behind a Unix socket of whole messages, where the virtual board plays it.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <mutex>

#include <android-base/unique_fd.h>

#include "chre/hub_link.h"
#include "chre/hub_message.h"
#include "conf/userial_type.h"
#include "os/device_path.h"
#include "os/error_text.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using ::android::base::unique_fd;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Closes when the last of those who send or wait has let go of it.
using Socket = std::shared_ptr<const unique_fd>;

int Poll(pollfd* descriptors, nfds_t count, std::optional<milliseconds> timeout) {
  const auto until = Clock::now() + timeout.value_or(milliseconds(0));
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
    const int ready = poll(descriptors, count, timeout ? static_cast<int>(left > 0 ? left : 0) : -1);
    if (ready >= 0 || errno != EINTR) return ready;
  }
}

class SocketLink : public HubLink {
 public:
  SocketLink() : stop_waiting_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  Connected Connect(std::string* why) override;
  Event Wait(std::vector<uint8_t>* message, std::optional<milliseconds> timeout) override;
  bool Send(std::span<const uint8_t> message, milliseconds patience, const std::atomic<bool>& give_up) override;

  void Interrupt() override {
    const uint64_t one = 1;
    (void)!write(stop_waiting_.get(), &one, sizeof(one));
  }

  void Disconnect() override { Set(nullptr); }

 private:
  Socket Current() {
    const std::lock_guard lock(mutex_);
    return socket_;
  }

  void Set(Socket socket) {
    const std::lock_guard lock(mutex_);
    socket_.swap(socket);
  }

  const unique_fd stop_waiting_;
  std::mutex mutex_;
  Socket socket_;
};

// The user of who listens at the other end, as he was when he began to; nobody's where the kernel does not know.
uid_t ListenerOf(int socket) {
  ucred credentials{.pid = 0, .uid = static_cast<uid_t>(-1), .gid = 0};
  socklen_t size = sizeof(credentials);
  (void)getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size);
  return credentials.uid;
}

HubLink::Connected SocketLink::Connect(std::string* why) {
  const std::string path = os::DevicePath(conf::kSensorHubFolder);
  const auto fail = [&](const std::string& what) {
    *why = what + ": " + os::ErrorText();
    return Connected::kNotYet;
  };
  // By way of the folder's descriptor: the device root's own path may be too long for an address.
  const unique_fd folder(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder.ok()) return fail("no sensor hub at " + path + "/" + conf::kSensorHubSocket);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const std::string short_path = "/proc/self/fd/" + std::to_string(folder.get()) + "/" + conf::kSensorHubSocket;
  short_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  auto fd = std::make_shared<const unique_fd>(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd->ok()) return fail("no socket to be had");
  if (connect(fd->get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    return fail("no sensor hub at " + path + "/" + conf::kSensorHubSocket);
  }
  // What a hub says is acted on, and what the client sends is told to it: another user's process may play none.
  if (const uid_t user = ListenerOf(fd->get()); user != 0 && user != geteuid()) {
    *why = "no sensor hub at " + path + "/" + conf::kSensorHubSocket + ": a process of user " + std::to_string(user) +
           " listens there, not one of user " + std::to_string(geteuid()) + " or root";
    return Connected::kNotYet;
  }
  Set(std::move(fd));
  return Connected::kYes;
}

HubLink::Event SocketLink::Wait(std::vector<uint8_t>* message, std::optional<milliseconds> timeout) {
  const Socket socket = Current();
  if (socket == nullptr) return Event::kHungUp;
  pollfd descriptors[] = {{socket->get(), POLLIN, 0}, {stop_waiting_.get(), POLLIN, 0}};
  const int ready = Poll(descriptors, 2, timeout);
  if (ready == 0) return Event::kTimeout;
  if (ready < 0) return Event::kHungUp;
  uint64_t count = 0;
  if (descriptors[1].revents != 0 && read(stop_waiting_.get(), &count, sizeof(count)) > 0) return Event::kInterrupted;
  message->resize(kMaxMessage);
  const ssize_t size = TEMP_FAILURE_RETRY(recv(socket->get(), message->data(), message->size(), MSG_TRUNC));
  if (size < 0 && errno == EAGAIN) return Event::kTimeout;
  if (size <= 0) return Event::kHungUp;
  if (static_cast<size_t>(size) > kMaxMessage) return Event::kTooLarge;
  message->resize(static_cast<size_t>(size));
  return Event::kMessage;
}

bool SocketLink::Send(std::span<const uint8_t> message, milliseconds patience, const std::atomic<bool>& give_up) {
  const Socket socket = Current();
  const auto until = Clock::now() + patience;
  errno = ENOTCONN;
  while (socket != nullptr) {
    if (TEMP_FAILURE_RETRY(send(socket->get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL)) >= 0) {
      return true;
    }
    if (errno != EAGAIN) return false;
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
    if (give_up || left.count() <= 0) {
      errno = give_up ? ECANCELED : ETIMEDOUT;
      return false;
    }
    pollfd writable{socket->get(), POLLOUT, 0};
    Poll(&writable, 1, std::min(left, kGiveUpInterval));
  }
  return false;
}

}  // namespace

std::unique_ptr<HubLink> MakeSocketLink() { return std::make_unique<SocketLink>(); }

}  // namespace android::hardware::bluetooth::hci::hub
