#include "h4/async_fd_watcher.h"

#include <sys/select.h>

#include <thread>
#include <utility>

#include "h4/async_fd_watcher_run.h"

namespace android::hardware::bluetooth::async {

int AsyncFdWatcher::WatchFdForNonBlockingReads(int fd, const ReadCallback& callback) {
  if (fd < 0 || fd >= FD_SETSIZE) return -1;
  std::lock_guard lock(run_mutex_);
  const bool starts = run_ == nullptr || !run_->running();
  if (starts) run_ = std::make_shared<Run>(std::exchange(timeout_, {}), std::exchange(timeout_cb_, nullptr));
  run_->Watch(fd, callback);
  return starts ? TryStartThread() : 0;
}

// After a failure the run stays, without a thread, and counts as running: whoever was told -1 gives up and stops.
int AsyncFdWatcher::TryStartThread() { return run_->OpenPipe() && run_->Start() ? 0 : -1; }

bool AsyncFdWatcher::StopWatchingFd(int fd, std::chrono::milliseconds patience) {
  const auto run = CurrentRun();
  return run == nullptr || run->Unwatch(fd, patience);
}

bool AsyncFdWatcher::StopWatchingFileDescriptors(std::chrono::milliseconds patience) {
  const auto run = CurrentRun();
  if (run == nullptr) return true;
  run->RequestStop();
  if (Run::OfThisThread() == run.get()) return true;
  const bool ended = run->Join(patience);
  std::lock_guard lock(run_mutex_);
  if (run_ == run) run_.reset();
  return ended;
}

void AsyncFdWatcher::ConfigureTimeout(std::chrono::milliseconds timeout, TimeoutCallback callback) {
  std::lock_guard lock(run_mutex_);
  timeout_ = timeout;
  timeout_cb_ = std::move(callback);
}

bool AsyncFdWatcher::WaitOnWatcherThread(std::chrono::milliseconds duration) {
  if (Run* const run = Run::OfThisThread()) return run->Wait(duration);
  std::this_thread::sleep_for(duration);
  return true;
}

std::shared_ptr<AsyncFdWatcher::Run> AsyncFdWatcher::CurrentRun() const {
  std::lock_guard lock(run_mutex_);
  return run_;
}

}  // namespace android::hardware::bluetooth::async
