// One life of the watcher thread, from a start to the stop that ends it.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/select.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "h4/async_fd_watcher.h"
#include "os/thread.h"

namespace android::hardware::bluetooth::async {

// The thread holds a reference to its run, so that a run outlives the watcher that lets go of it. No lock is held while
// a callback runs.
class AsyncFdWatcher::Run : public std::enable_shared_from_this<Run> {
 public:
  // `timeout` of 0 or less: the thread blocks until a descriptor is readable.
  Run(std::chrono::milliseconds timeout, TimeoutCallback timeout_cb);
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run();

  // False if the system gives no pipe that select can take.
  bool OpenPipe();
  // Once, behind OpenPipe. False if the system gives no thread.
  bool Start();

  void Watch(int fd, const ReadCallback& callback);
  // Waits for a running callback of `fd`, unless called on the run's own thread. False if it has not returned for
  // `patience`.
  bool Unwatch(int fd, std::chrono::milliseconds patience);
  void RequestStop();
  // Waits for the thread's end; any number of threads may. False if it has not come for `patience`.
  bool Join(std::chrono::milliseconds patience);
  bool Wait(std::chrono::milliseconds duration);

  bool running() const { return running_; }

  // The run on whose thread the caller is; null elsewhere.
  static Run* OfThisThread();

 private:
  // One registration. A descriptor watched anew is another registration, even under the same number: what select said
  // of the old one does not hold for it.
  struct Watched {
    int fd;
    ReadCallback callback;
  };
  using WatchedPtr = std::shared_ptr<const Watched>;

  void ThreadRoutine();
  void Pass();
  int SelectReadable(fd_set& readable);
  int CollectWatched(fd_set& wanted);
  void TakeOneWakeUp();
  void OnTimeout();
  void Dispatch(const WatchedPtr& watched);
  void End();
  bool IsWatchedLocked(const Watched* watched) const;
  void WakeLocked();

  const std::chrono::milliseconds timeout_;
  std::atomic<bool> running_{true};

  std::mutex join_mutex_;  // held by the one that joins; the others wait for it
  os::Thread thread_;

  std::mutex internal_mutex_;  // guards all that follows but pass_
  std::condition_variable changed_;
  TimeoutCallback timeout_cb_;
  std::map<int, WatchedPtr> watched_fds_;
  const Watched* executing_ = nullptr;  // whose callback runs right now
  bool ended_ = false;                  // the thread has nothing left to do but return
  ::android::base::unique_fd notification_listen_fd_;
  ::android::base::unique_fd notification_write_fd_;

  std::vector<WatchedPtr> pass_;  // what the current pass selects on, in ascending order; the run's thread only
};

}  // namespace android::hardware::bluetooth::async
