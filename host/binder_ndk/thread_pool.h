// The threads of this process that serve the peers' calls.
#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "connection/connection.h"

namespace bthal::binder {

// The thread that the kernel wakes for a readable connection reads it and serves the call it finds: there is no
// hand-over. Calls beyond one go through a queue. Any thread.
class ThreadPool {
 public:
  ThreadPool();

  void SetMaxThreads(uint32_t count);
  void Start();
  [[noreturn]] void Join();

  // The pool reads the connection's calls from now on; no longer, and those that nobody has begun are dropped.
  void Watch(const Connection& connection);
  void Unwatch(const Connection& connection);

  // Takes the jobs, and leaves none.
  void Add(std::vector<Job>* jobs);

  // For a child process after fork: gives up what it shares with its parent.
  void Abandon(int replacement);

 private:
  [[noreturn]] void Run();
  bool Next(std::vector<Job>* found, Job* job);
  void BeginJob();
  void EndJob();
  void Spawn();

  const android::base::unique_fd epoll_;
  const android::base::unique_fd queue_counter_;  // readable once for every job in the queue

  std::mutex mutex_;
  std::deque<Job> queue_;
  uint32_t max_threads_ = 15;
  uint32_t spawned_ = 0;
  uint32_t idle_ = 0;
  bool started_ = false;
};

}  // namespace bthal::binder
