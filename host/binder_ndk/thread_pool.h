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
//
// One thread stays with a peer that calls again and again, and waits for its express calls only, which is the shortest
// way that there is. It does not count as one of the pool's then; and after, there is one more of them.
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
  // Takes the first of the jobs, and leaves the others to other threads.
  Job TakeFirst(std::vector<Job>* found);
  void BeginJob();
  void EndJob();
  // Serves the express calls of `connection` as long as it lasts, unless another thread stays with one.
  void StayWith(Connection& connection);
  bool BeginStay();
  void EndStay();
  void Spawn();

  const android::base::unique_fd epoll_;
  const android::base::unique_fd queue_counter_;  // readable once for every job in the queue

  std::mutex mutex_;
  std::deque<Job> queue_;
  uint32_t max_threads_ = 15;
  uint32_t spawned_ = 0;
  uint32_t idle_ = 0;
  bool started_ = false;
  bool staying_ = false;  // a thread does
};

}  // namespace bthal::binder
