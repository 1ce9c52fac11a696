#define LOG_TAG "binder.process"

#include "process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <thread>
#include <utility>

#include <android-base/logging.h>

#include "socket.h"

namespace bthal::binder {
namespace {

using android::base::unique_fd;

constexpr size_t kMaxConnections = 64;
// One user's share, so that root gets in beside the service's own user.
constexpr size_t kMaxConnectionsOfUser = 48;
constexpr int kShortageMs = 100;
// How long new connections wait for recipients of a death to return.
constexpr std::chrono::milliseconds kTellingPatience{2000};

std::atomic<Process*> g_process{nullptr};
std::mutex& ProcessMutex() {
  static auto& mutex = *new std::mutex;
  return mutex;
}

}  // namespace

Process& Process::Get() {
  Process* process = g_process.load(std::memory_order_acquire);
  if (process != nullptr) return *process;
  const std::lock_guard lock(ProcessMutex());
  process = g_process.load(std::memory_order_acquire);
  if (process == nullptr) {
    static const int fork_handlers = pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
    static_cast<void>(fork_handlers);
    process = new Process;
    g_process.store(process, std::memory_order_release);
  }
  return *process;
}

Process::Process()
    : undertaker_([] { Get().WakeWatcher(); }),
      watched_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (watched_.get() < 0 || wake_.get() < 0) PLOG(FATAL) << "no descriptors for connections";
}

void Process::BeforeFork() {
  ProcessMutex().lock();
  if (Process* process = g_process.load()) process->mutex_.lock();
}

void Process::AfterForkInParent() {
  if (Process* process = g_process.load()) process->mutex_.unlock();
  ProcessMutex().unlock();
}

// The child's copies of the sockets would hide the parent's death from its peers. Their numbers stay taken, by
// something harmless, because proxies of the parent may still be used by mistake.
void Process::AfterForkInChild() {
  if (Process* process = g_process.exchange(nullptr)) {
    const int harmless = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const auto& [id, connection] : process->connections_) {
      for (const Way way : kAllWays) dup3(harmless, connection->fd(way), O_CLOEXEC);
    }
    if (process->listener_.get() >= 0) dup3(harmless, process->listener_.get(), O_CLOEXEC);
    dup3(harmless, process->watched_.get(), O_CLOEXEC);
    dup3(harmless, process->wake_.get(), O_CLOEXEC);
    process->pool_.Abandon(harmless);
    close(harmless);
    process->mutex_.unlock();
  }
  ProcessMutex().unlock();
}

std::shared_ptr<Connection> Process::ConnectTo(const std::string& name) {
  const std::lock_guard connecting(connect_mutex_);
  {
    const std::lock_guard lock(mutex_);
    const auto known = by_name_.find(name);
    const auto found = known == by_name_.end() ? connections_.end() : connections_.find(known->second);
    if (found != connections_.end() && found->second->HasPeer()) return found->second;
  }
  Sockets sockets;
  Sockets peers_ends;
  unique_fd& calls = sockets[At(Way::kCalls)];
  calls = ConnectSocket(name);
  if (calls.get() < 0) return nullptr;
  if (geteuid() != 0 && !IsTrusted(PeerOf(calls.get()))) {
    LOG(ERROR) << "the service at " << name << " runs as another user and is not called";
    return nullptr;
  }
  for (const Way way : {Way::kAnswers, Way::kExpressOut, Way::kExpressIn}) {
    if (android::base::Socketpair(AF_UNIX, SOCK_STREAM, 0, &sockets[At(way)], &peers_ends[At(AtPeer(way))])) continue;
    PLOG(ERROR) << "no sockets for a connection to " << name;
    return nullptr;
  }
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Connection> connection = AdoptLocked(std::move(sockets));
  if (connection == nullptr) return nullptr;
  connection->Introduce(peers_ends);
  by_name_[name] = connection->id();
  return connection;
}

void Process::Listen(unique_fd socket) {
  {
    const std::lock_guard lock(mutex_);
    listener_ = std::move(socket);
    if (!std::exchange(watching_, true)) std::thread(&Process::Watch, this).detach();
  }
  WakeWatcher();
}

std::shared_ptr<Connection> Process::AdoptLocked(Sockets sockets) {
  auto connection = std::make_shared<Connection>(next_id_++, std::move(sockets));
  for (const Way way : kAllWays) {
    if (connection->fd(way) < 0 || WatchHangUp(*connection, way)) continue;
    PLOG(ERROR) << "cannot watch a connection";
    return nullptr;
  }
  connections_.emplace(connection->id(), connection);
  pool_.Watch(*connection);
  if (!std::exchange(watching_, true)) std::thread(&Process::Watch, this).detach();
  return connection;
}

std::shared_ptr<Connection> Process::FindConnection(uint64_t id) {
  const std::lock_guard lock(mutex_);
  const auto found = connections_.find(id);
  return found == connections_.end() ? nullptr : found->second;
}

void Process::WakeWatcher() {
  const uint64_t one = 1;
  TEMP_FAILURE_RETRY(write(wake_.get(), &one, sizeof(one)));
}

void Process::Watch() {
  pthread_setname_np(pthread_self(), "binder:watch");
  for (;;) {
    HandleConnections();
    const bool may_accept = MayAccept();
    int listener = -1;
    {
      const std::lock_guard lock(mutex_);
      listener = listener_.get();
    }
    pollfd ready[] = {{watched_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}, {may_accept ? listener : -1, POLLIN, 0}};
    TEMP_FAILURE_RETRY(poll(ready, std::size(ready), may_accept ? -1 : AcceptTimeoutMs()));
    uint64_t count = 0;
    if (ready[1].revents != 0) TEMP_FAILURE_RETRY(read(wake_.get(), &count, sizeof(count)));
    if (ready[2].revents == 0) continue;
    // Whoever hung up before this newcomer connected is seen by now, though perhaps not by the poll above.
    HandleConnections();
    if (MayAccept()) Accept();
  }
}

bool Process::WatchSocket(int operation, const Connection& connection, Way way, bool room) {
  epoll_event event{};
  event.events = EPOLLRDHUP | (room ? EPOLLOUT : 0U);
  event.data.u64 = connection.id() * std::size(kAllWays) + At(way);
  return epoll_ctl(watched_.get(), operation, connection.fd(way), &event) == 0;
}

// Fails for a connection that is no longer watched, which is as good.
void Process::AwaitRoom(const Connection& connection, Way way, bool wanted) {
  WatchSocket(EPOLL_CTL_MOD, connection, way, wanted);
}

bool Process::WatchHangUp(const Connection& connection, Way way) {
  return WatchSocket(EPOLL_CTL_ADD, connection, way, false);
}

void Process::HandleConnections() {
  epoll_event events[kMaxConnections];
  int count = 0;
  do {
    count = TEMP_FAILURE_RETRY(epoll_wait(watched_.get(), events, std::size(events), 0));
    for (int i = 0; i < count; ++i) {
      const uint64_t id = events[i].data.u64 / std::size(kAllWays);
      if (events[i].events != EPOLLOUT) {
        Bury(id);
      } else if (const auto connection = FindConnection(id)) {
        connection->OnRoom(kAllWays[events[i].data.u64 % std::size(kAllWays)]);
      }
    }
  } while (count == std::size(events));
}

void Process::Bury(uint64_t id) {
  std::shared_ptr<Connection> connection;
  {
    const std::lock_guard lock(mutex_);
    const auto found = connections_.find(id);
    if (found == connections_.end()) return;
    connection = std::move(found->second);
    connections_.erase(found);
    std::erase_if(by_name_, [&](const auto& entry) { return entry.second == id; });
  }
  pool_.Unwatch(*connection);
  // First, because another socket of the peer's may come in this moment, to be watched unless the hang-up was seen.
  Estate estate = connection->OnHangUp();
  for (const Way way : kAllWays) {
    epoll_ctl(watched_.get(), EPOLL_CTL_DEL, connection->fd(way), nullptr);
  }
  undertaker_.Settle(std::move(estate));
}

bool Process::MayAccept() {
  const auto now = std::chrono::steady_clock::now();
  if (undertaker_.Idle()) {
    telling_ = false;
  } else if (!std::exchange(telling_, true)) {
    telling_since_ = now;
  }
  return !telling_ || now - telling_since_ >= kTellingPatience;
}

int Process::AcceptTimeoutMs() const {
  const auto left = telling_since_ + kTellingPatience - std::chrono::steady_clock::now();
  return static_cast<int>(std::max<int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(left).count()));
}

void Process::Accept() {
  unique_fd socket(TEMP_FAILURE_RETRY(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
  if (socket.get() < 0) {
    if (errno == EAGAIN || errno == ECONNABORTED) return;
    PLOG(ERROR) << "cannot take a connection";
    // The newcomer is still there; let others give something back before it is looked at again.
    poll(nullptr, 0, kShortageMs);
    return;
  }
  const Peer peer = PeerOf(socket.get());
  if (!IsTrusted(peer)) {
    LOG(WARNING) << "a connection of another user's process is turned away: process " << peer.pid << " of user "
                 << peer.uid;
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    if (HasPlaceFor(peer.uid)) {
      Sockets sockets;
      sockets[At(Way::kCalls)] = std::move(socket);
      AdoptLocked(std::move(sockets));
      return;
    }
  }
  SayTurnedAway(peer);
}

// Once a second: whoever is turned away may come again at once.
void Process::SayTurnedAway(const Peer& peer) {
  const auto now = std::chrono::steady_clock::now();
  ++turned_away_;
  if (now < next_said_) return;
  LOG(WARNING) << "a connection is turned away: process " << peer.pid << " of user " << peer.uid << ", who may have "
               << kMaxConnectionsOfUser << " of " << kMaxConnections << "; " << turned_away_
               << " since this was last said";
  turned_away_ = 0;
  next_said_ = now + std::chrono::seconds(1);
}

bool Process::HasPlaceFor(uid_t user) {
  const auto of_user = std::count_if(connections_.begin(), connections_.end(),
                                     [&](const auto& entry) { return PeerOf(entry.second->fd()).uid == user; });
  return static_cast<size_t>(of_user) < kMaxConnectionsOfUser && connections_.size() < kMaxConnections;
}

}  // namespace bthal::binder
