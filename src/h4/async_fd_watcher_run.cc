#include "h4/async_fd_watcher_run.h"
#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace android::hardware::bluetooth::async {
namespace {

using ::android::base::StringPrintf;

constexpr int kRealTimePriority = 1;

thread_local void* run_of_this_thread = nullptr;

// Controller traffic is drained before the normal threads get the processor. Where the system does not grant it, the
// work is done all the same.
void RaisePriority() {
  const sched_param parameters{.sched_priority = kRealTimePriority};
  if (sched_setscheduler(gettid(), SCHED_FIFO, &parameters) == 0) return;
  LOG(ERROR) << StringPrintf("%s unable to set SCHED_FIFO for pid %d, tid %d, error %s", "ThreadRoutine", getpid(),
                             gettid(), strerror(errno));
}

timeval ToTimeval(std::chrono::milliseconds duration) {
  return {.tv_sec = duration.count() / 1000, .tv_usec = (duration.count() % 1000) * 1000};
}

}  // namespace

AsyncFdWatcher::Run::Run(std::chrono::milliseconds timeout, TimeoutCallback timeout_cb)
    : timeout_(timeout), timeout_cb_(std::move(timeout_cb)) {}

// Nobody joins a run that was stopped from inside and then replaced: its thread is done, or about to be.
AsyncFdWatcher::Run::~Run() {
  if (thread_.joinable()) thread_.detach();
}

AsyncFdWatcher::Run* AsyncFdWatcher::Run::OfThisThread() { return static_cast<Run*>(run_of_this_thread); }

bool AsyncFdWatcher::Run::OpenPipe() {
  std::lock_guard lock(internal_mutex_);
  return ::android::base::Pipe(&notification_listen_fd_, &notification_write_fd_, O_NONBLOCK | O_CLOEXEC) &&
         notification_listen_fd_.get() < FD_SETSIZE;
}

bool AsyncFdWatcher::Run::Start() {
  thread_ = os::Thread::Start("bt_rx", [self = shared_from_this()] { self->ThreadRoutine(); });
  return thread_.joinable();
}

// Wakes the thread, which may be about to block with nothing but its pipe to wait for: an unwatched descriptor's
// successor would never be heard.
void AsyncFdWatcher::Run::Watch(int fd, const ReadCallback& callback) {
  WatchedPtr watched = std::make_shared<const Watched>(Watched{fd, callback});
  std::lock_guard lock(internal_mutex_);
  watched_fds_[fd].swap(watched);
  WakeLocked();
}

bool AsyncFdWatcher::Run::Unwatch(int fd, std::chrono::milliseconds patience) {
  std::unique_lock lock(internal_mutex_);
  watched_fds_.erase(fd);
  WakeLocked();
  changed_.notify_all();
  if (OfThisThread() == this) return true;
  return changed_.wait_for(lock, patience, [&] { return executing_ == nullptr || executing_->fd != fd; });
}

void AsyncFdWatcher::Run::RequestStop() {
  std::lock_guard lock(internal_mutex_);
  running_ = false;
  WakeLocked();
  changed_.notify_all();
}

bool AsyncFdWatcher::Run::Join(std::chrono::milliseconds patience) {
  std::lock_guard joining(join_mutex_);
  if (!thread_.joinable()) return true;
  {
    std::unique_lock lock(internal_mutex_);
    if (!changed_.wait_for(lock, patience, [this] { return ended_; })) return false;
  }
  thread_.join();
  return true;
}

bool AsyncFdWatcher::Run::Wait(std::chrono::milliseconds duration) {
  std::unique_lock lock(internal_mutex_);
  return !changed_.wait_for(lock, duration,
                            [&] { return !running_ || (executing_ != nullptr && !IsWatchedLocked(executing_)); });
}

bool AsyncFdWatcher::Run::IsWatchedLocked(const Watched* watched) const {
  const auto it = watched_fds_.find(watched->fd);
  return it != watched_fds_.end() && it->second.get() == watched;
}

void AsyncFdWatcher::Run::WakeLocked() {
  if (!notification_write_fd_.ok()) return;
  const uint8_t wake_up = 0;
  // A full pipe wakes as well as one byte more would.
  [[maybe_unused]] const ssize_t written =
      TEMP_FAILURE_RETRY(write(notification_write_fd_.get(), &wake_up, sizeof(wake_up)));
}

void AsyncFdWatcher::Run::ThreadRoutine() {
  run_of_this_thread = this;
  RaisePriority();
  while (running_) Pass();
  End();
}

void AsyncFdWatcher::Run::Pass() {
  fd_set readable;
  const int count = SelectReadable(readable);
  if (count < 0) return;
  if (count == 0) return OnTimeout();
  if (FD_ISSET(notification_listen_fd_.get(), &readable)) return TakeOneWakeUp();
  for (const WatchedPtr& watched : pass_) {
    if (FD_ISSET(watched->fd, &readable)) Dispatch(watched);
  }
}

int AsyncFdWatcher::Run::SelectReadable(fd_set& readable) {
  const int highest = CollectWatched(readable);
  timeval timeout = ToTimeval(timeout_);
  return select(highest + 1, &readable, nullptr, nullptr, timeout_.count() > 0 ? &timeout : nullptr);
}

int AsyncFdWatcher::Run::CollectWatched(fd_set& wanted) {
  std::lock_guard lock(internal_mutex_);
  FD_ZERO(&wanted);
  FD_SET(notification_listen_fd_.get(), &wanted);
  int highest = notification_listen_fd_.get();
  pass_.clear();
  for (const auto& [fd, watched] : watched_fds_) {
    FD_SET(fd, &wanted);
    highest = std::max(highest, fd);
    pass_.push_back(watched);
  }
  return highest;
}

void AsyncFdWatcher::Run::TakeOneWakeUp() {
  uint8_t wake_up = 0;
  [[maybe_unused]] const ssize_t taken =
      TEMP_FAILURE_RETRY(read(notification_listen_fd_.get(), &wake_up, sizeof(wake_up)));
}

void AsyncFdWatcher::Run::OnTimeout() {
  TimeoutCallback callback;
  {
    std::lock_guard lock(internal_mutex_);
    callback = timeout_cb_;
  }
  if (callback) callback();
}

void AsyncFdWatcher::Run::Dispatch(const WatchedPtr& watched) {
  {
    std::lock_guard lock(internal_mutex_);
    if (!running_ || !IsWatchedLocked(watched.get())) return;
    executing_ = watched.get();
  }
  watched->callback(watched->fd);
  std::lock_guard lock(internal_mutex_);
  executing_ = nullptr;
  changed_.notify_all();
}

// Callbacks own what they call; they are let go of without the lock, whatever that sets off.
void AsyncFdWatcher::Run::End() {
  pass_.clear();
  std::map<int, WatchedPtr> watched_fds;
  TimeoutCallback timeout_cb;
  std::lock_guard lock(internal_mutex_);
  watched_fds.swap(watched_fds_);
  timeout_cb.swap(timeout_cb_);
  notification_listen_fd_.reset();
  notification_write_fd_.reset();
  ended_ = true;
  changed_.notify_all();
}

}  // namespace android::hardware::bluetooth::async
