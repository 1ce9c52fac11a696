#include "sim/nodes/control.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>

#include "sim/base/files.h"

namespace bthal::sim {
namespace {

constexpr size_t kMostPeers = 16;
constexpr size_t kLongestLine = 1024;

bool Fail(std::string* error, const std::string& what) {
  *error = what + ": " + strerror(errno);
  return false;
}

}  // namespace

bool Control::Bind(const std::string& folder, const std::string& fresh, std::string* error) {
  // By way of the folder's descriptor: the root's own path may be too long for an address.
  const Fd place(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const std::string path = "/proc/self/fd/" + std::to_string(place.get()) + fresh.substr(folder.size());
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  listener_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  unlink(fresh.c_str());
  // Before there is a name to connect to.
  if (!place.ok() || !listener_.ok() || fchmod(listener_.get(), 0600) != 0 ||
      bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener_.get(), kMostPeers) != 0) {
    return Fail(error, "cannot listen at " + fresh);
  }
  return true;
}

bool Control::Open(const std::string& root, Answer answer, std::string* error) {
  const std::string path = root + kControlSocket;
  const std::string folder = path.substr(0, path.rfind('/'));
  const std::string fresh = path + ".new";
  if (!MakeFoldersAbove(folder, error)) return false;
  // Closed to others, as all that share it expect.
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return Fail(error, "cannot make the folder " + folder);
  if (!Bind(folder, fresh, error)) return false;
  const Fd node(open(fresh.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!guardian_->Publish(fresh, path, node.get(), -1, error)) {
    unlink(fresh.c_str());
    return false;
  }
  path_ = path;
  answer_ = std::move(answer);
  return true;
}

void Control::Close() {
  if (!path_.empty()) unlink(path_.c_str());
  path_.clear();
  peers_.clear();
  listener_.Reset();
}

void Control::AddPolls(std::vector<pollfd>* polls) const {
  if (listener_.ok()) polls->push_back({listener_.get(), POLLIN, 0});
  for (const Peer& peer : peers_) {
    polls->push_back({peer.socket.get(), static_cast<short>(peer.answer.empty() ? POLLIN : POLLOUT), 0});
  }
}

void Control::Accept() {
  while (listener_.ok()) {
    Fd socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket.ok()) {
      if (peers_.size() == kMostPeers) peers_.pop_front();
      peers_.push_back({std::move(socket), "", ""});
    } else if ((errno == EMFILE || errno == ENFILE) && !peers_.empty()) {
      peers_.pop_front();  // whoever knocks would be heard for ever
    } else if (errno != EINTR && errno != ECONNABORTED) {
      if (errno != EAGAIN) listener_.Reset();
      return;
    }
  }
}

// The next whole line, if the answer to the one before has been taken.
void Control::AnswerNext(Peer* peer) const {
  const size_t end = peer->asked.find('\n');
  if (!peer->answer.empty() || end == std::string::npos) return;
  std::string line = peer->asked.substr(0, end);
  peer->asked.erase(0, end + 1);
  if (line.ends_with('\r')) line.pop_back();
  const bool text = std::none_of(line.begin(), line.end(), [](char c) { return c >= 0 && c < ' ' && c != '\t'; });
  peer->answer = text ? answer_(line) : "error: a question is a line of text\n";
}

bool Control::Serve(Peer* peer) {
  char piece[kLongestLine];
  if (peer->answer.empty()) {
    const ssize_t count = TEMP_FAILURE_RETRY(recv(peer->socket.get(), piece, sizeof(piece), 0));
    if (count == 0 || (count < 0 && errno != EAGAIN)) return false;
    if (count > 0) peer->asked.append(piece, static_cast<size_t>(count));
  }
  AnswerNext(peer);
  while (!peer->answer.empty()) {
    const ssize_t count =
        TEMP_FAILURE_RETRY(send(peer->socket.get(), peer->answer.data(), peer->answer.size(), MSG_NOSIGNAL));
    if (count < 0) return errno == EAGAIN;
    peer->answer.erase(0, static_cast<size_t>(count));
    AnswerNext(peer);
  }
  return peer->asked.size() <= kLongestLine;
}

void Control::Serve() {
  std::erase_if(peers_, [this](Peer& peer) { return !Serve(&peer); });
  Accept();
}

}  // namespace bthal::sim
