#include "sim/hub/hub.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <utility>
#include <vector>

#include "sim/base/files.h"

namespace bthal::sim {
namespace {

constexpr size_t kLongestMessage = 65536;
// With so much waiting on one side, nothing more is read from the other.
constexpr size_t kMostForUart = 64;
constexpr size_t kMostForClient = 256;

}  // namespace

bool Hub::Listen(std::string* error) {
  const std::string path = root_ + kHubSocket;
  const std::string folder = path.substr(0, path.rfind('/'));
  const std::string fresh = path + ".new";
  const auto fail = [&](const std::string& what) {
    *error = what + ": " + strerror(errno);
    return false;
  };
  if (!MakeFoldersAbove(folder, error)) return false;
  // Closed to others, as all that share it expect.
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return fail("cannot make the folder " + folder);
  // By way of the folder's descriptor: the root's own path may be too long for an address.
  const Fd place(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const std::string short_path = "/proc/self/fd/" + std::to_string(place.get()) + fresh.substr(folder.size());
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  short_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  listener_.Reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  unlink(fresh.c_str());
  if (!place.ok() || !listener_.ok() || fchmod(listener_.get(), 0600) != 0 ||
      bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener_.get(), 1) != 0) {
    return fail("cannot listen at " + fresh);
  }
  const Fd node(open(fresh.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  return guardian_->Publish(fresh, path, node.get(), -1, error);
}

bool Hub::Start(std::string* error) {
  if (!Listen(error) || !tasks_.Open(error)) return false;
  thread_ = std::thread([this] { Run(); });
  return true;
}

void Hub::Stop() {
  if (!thread_.joinable()) return;
  stop_ = true;
  tasks_.Add([] {});
  thread_.join();
  if (listener_.ok()) unlink((root_ + kHubSocket).c_str());
  listener_.Reset();
  DropClient();
}

void Hub::Restart(Clock::duration away) {
  tasks_.Add([this, away] { GoAway(away); });
}

void Hub::Run() {
  prctl(PR_SET_NAME, "virtual hub");
  while (!stop_) {
    Wait();
    tasks_.Run();
    timers_.RunDue(Clock::now());
    Accept();
    if (MayReadClient()) ReadClient();
    if (uart_.is_open()) uart_.Flush(Clock::now());
    if (MayReadUart()) uart_.Read([this](uint8_t type, const Bytes& packet) { Send(HubPacket(type, packet)); });
    FlushClient();
  }
}

bool Hub::MayReadClient() const { return client_.ok() && !paused_ && uart_.Waiting() < kMostForUart; }

bool Hub::MayReadUart() const { return uart_.is_open() && to_client_.size() < kMostForClient; }

void Hub::Wait() {
  std::vector<pollfd> polls{{tasks_.fd(), POLLIN, 0}};
  if (listener_.ok()) polls.push_back({listener_.get(), POLLIN, 0});
  if (client_.ok()) {
    polls.push_back({client_.get(), static_cast<short>((MayReadClient() ? POLLIN : 0) | (blocked_ ? POLLOUT : 0)), 0});
  }
  if (uart_.is_open()) {
    polls.push_back(
        {uart_.fd(), static_cast<short>((MayReadUart() ? POLLIN : 0) | (uart_.WantsToWrite() ? POLLOUT : 0)), 0});
  }
  std::optional<Clock::time_point> next = timers_.Next();
  if (const auto look = uart_.NextLook(); look && (!next || *look < *next)) next = look;
  int timeout = -1;
  if (next) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    timeout = left > 0 ? static_cast<int>(left) : 0;
  }
  if (poll(polls.data(), polls.size(), timeout) < 0 && errno != EINTR) stop_ = true;
}

void Hub::Accept() {
  if (!listener_.ok()) return;
  Fd client(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!client.ok()) return;
  DropClient();
  client_ = std::move(client);
  journal_->Record(WireEvent::kHubRequest, 0, "connected");
}

void Hub::ReadClient() {
  Bytes message(kLongestMessage);
  const ssize_t size = TEMP_FAILURE_RETRY(recv(client_.get(), message.data(), message.size(), MSG_TRUNC));
  if (size < 0 && errno == EAGAIN) return;
  if (size <= 0) return DropClient();
  if (static_cast<size_t>(size) > message.size()) {
    journal_->Record(WireEvent::kProtocolError, 0, "a message of " + std::to_string(size) + " bytes for the hub");
    return;
  }
  message.resize(static_cast<size_t>(size));
  OnMessage(message);
}

void Hub::Send(Bytes message) {
  if (client_.ok()) to_client_.push_back(std::move(message));
}

void Hub::FlushClient() {
  blocked_ = false;
  while (client_.ok() && !to_client_.empty()) {
    const Bytes& message = to_client_.front();
    if (TEMP_FAILURE_RETRY(send(client_.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL)) < 0) {
      if (errno != EAGAIN) return DropClient();
      blocked_ = true;
      return;
    }
    to_client_.pop_front();
  }
}

// What the client had opened goes with it; the power is as it was.
void Hub::DropClient() {
  if (!client_.ok()) return;
  client_.Reset();
  ++client_number_;
  to_client_.clear();
  uart_.Close();
  uart_.SetLowPower(false, Clock::now());
  paused_ = false;
}

void Hub::GoAway(Clock::duration away) {
  journal_->Record(WireEvent::kFault, 0, "the hub hangs up");
  // Gone from the file system first: whoever is hung up on connects at once.
  if (listener_.ok() && away.count() > 0) {
    unlink((root_ + kHubSocket).c_str());
    listener_.Reset();
    timers_.After(away, [this] {
      std::string error;
      if (!Listen(&error)) journal_->Record(WireEvent::kProtocolError, 0, "the hub does not come back: " + error);
    });
  }
  DropClient();
}

}  // namespace bthal::sim
