// The one thread on which everything received is handled.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace android::hardware::bluetooth::async {

using ReadCallback = std::function<void(int fd)>;
using TimeoutCallback = std::function<void()>;

// Watches descriptors for readability and calls their callbacks on a thread of its own (SCHED_FIFO priority 1 where the
// system grants it). Every start makes a run of its own: thread, wake-up pipe, stop flag and watches belong to the run,
// so a stop from inside a callback lets that run end by itself while a later start already has a new one. All
// operations may be called from any thread, and from inside the callbacks, which run without any lock of the watcher
// held.
class AsyncFdWatcher {
 public:
  static constexpr std::chrono::milliseconds kForever = std::chrono::hours(24 * 365);

  AsyncFdWatcher() = default;
  AsyncFdWatcher(const AsyncFdWatcher&) = delete;
  AsyncFdWatcher& operator=(const AsyncFdWatcher&) = delete;
  ~AsyncFdWatcher() = default;  // neither stops nor joins: the owner stops first

  // Calls `callback` with `fd` whenever it is readable, the lower descriptor first when several are; a second call for
  // the same descriptor replaces the callback. Starts the thread if none runs. Returns 0, or -1 if the descriptor is
  // outside 0..1023 or neither pipe nor thread could be made; a failed start counts as running until the next stop.
  // `fd` stays the caller's and must stay open until it is unwatched or the watcher is stopped.
  int WatchFdForNonBlockingReads(int fd, const ReadCallback& callback);

  // Forgets `fd`. When it returns, its callback does not run and will not run again (called on the watcher thread: will
  // not run again), so the descriptor may be closed. Only a callback that stopped its own run may still be on its way
  // out, and one that has not returned for `patience`: false tells of the latter.
  bool StopWatchingFd(int fd, std::chrono::milliseconds patience = kForever);

  // Ends the current run and forgets its watches. Returns after the thread has ended; called on the watcher thread
  // itself it marks the run and returns at once, and the thread ends when the callback returns. A second stop waits for
  // the first. Stopping twice is harmless. A thread whose callback has not returned for `patience` is left to end by
  // itself: false tells of it.
  bool StopWatchingFileDescriptors(std::chrono::milliseconds patience = kForever);

  // Sets the select timeout (0 or less: none) and what is called when it passes. For the next run only.
  void ConfigureTimeout(std::chrono::milliseconds timeout, TimeoutCallback callback);

  // Waits on the watcher thread, inside a callback, for `duration`, or until the run is stopped or the callback's own
  // descriptor unwatched. Returns true if the whole time passed. On a thread that is no watcher's it simply sleeps.
  static bool WaitOnWatcherThread(std::chrono::milliseconds duration);

 private:
  class Run;

  std::shared_ptr<Run> CurrentRun() const;
  int TryStartThread();

  mutable std::mutex run_mutex_;  // guards all that follows
  std::shared_ptr<Run> run_;      // the latest run; one that ended by itself is reclaimed by the next start or stop
  std::chrono::milliseconds timeout_{0};
  TimeoutCallback timeout_cb_;
};

}  // namespace android::hardware::bluetooth::async
