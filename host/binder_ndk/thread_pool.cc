#define LOG_TAG "binder.pool"

#include "thread_pool.h"

#include <errno.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include <android-base/logging.h>
#include <android/binder_process.h>

#include "process.h"

namespace bthal::binder {
namespace {

// No connection has this id.
constexpr uint64_t kQueue = 0;
// A thread that has served so many calls of one connection, and none of another, stays with it. What a tool asks is
// done before.
constexpr unsigned kCallsBeforeStay = 64;

void Control(int epoll, int operation, const Connection& connection, uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = connection.id();
  // Fails for a connection that is no longer watched, which is as good.
  epoll_ctl(epoll, operation, connection.fd(), &event);
}

// Edge-triggered: the thread that was woken need not tell the kernel when it has read.
constexpr uint32_t kReadable = EPOLLIN | EPOLLET;

}  // namespace

ThreadPool::ThreadPool()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), queue_counter_(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (epoll_.get() < 0 || queue_counter_.get() < 0) PLOG(FATAL) << "no descriptors for the thread pool";
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kQueue;
  epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, queue_counter_.get(), &event);
}

void ThreadPool::SetMaxThreads(uint32_t count) {
  const std::lock_guard lock(mutex_);
  max_threads_ = count;
}

void ThreadPool::Start() {
  const std::lock_guard lock(mutex_);
  if (!std::exchange(started_, true)) Spawn();
}

void ThreadPool::Join() { Run(); }

void ThreadPool::Watch(const Connection& connection) { Control(epoll_.get(), EPOLL_CTL_ADD, connection, kReadable); }

void ThreadPool::Unwatch(const Connection& connection) {
  Control(epoll_.get(), EPOLL_CTL_DEL, connection, 0);
  std::deque<Job> dropped;  // destroyed without the lock
  const std::lock_guard lock(mutex_);
  const auto first = std::stable_partition(queue_.begin(), queue_.end(),
                                           [&](const Job& job) { return job.connection.get() != &connection; });
  std::move(first, queue_.end(), std::back_inserter(dropped));
  queue_.erase(first, queue_.end());
}

void ThreadPool::Add(std::vector<Job>* jobs) {
  if (jobs->empty()) return;
  const uint64_t count = jobs->size();
  {
    const std::lock_guard lock(mutex_);
    for (Job& job : *jobs) queue_.push_back(std::move(job));
  }
  jobs->clear();
  // Cannot fail: the counter is far from its limit.
  TEMP_FAILURE_RETRY(write(queue_counter_.get(), &count, sizeof(count)));
}

void ThreadPool::Run() {
  {
    const std::lock_guard lock(mutex_);
    ++idle_;
  }
  std::vector<Job> found;  // kept, so that a call needs no memory for it
  uint64_t last_served = kQueue;
  unsigned in_a_row = 0;
  for (;;) {
    Job job;
    if (!Next(&found, &job)) continue;
    BeginJob();
    job.Run();
    if (std::exchange(last_served, job.connection->id()) != job.connection->id()) in_a_row = 0;
    if (++in_a_row == kCallsBeforeStay) {
      StayWith(*job.connection);
      in_a_row = 0;
    }
    EndJob();
  }
}

bool ThreadPool::Next(std::vector<Job>* found, Job* job) {
  epoll_event event{};
  if (TEMP_FAILURE_RETRY(epoll_wait(epoll_.get(), &event, 1, -1)) != 1) return false;
  if (event.data.u64 == kQueue) {
    uint64_t one = 0;
    if (TEMP_FAILURE_RETRY(read(queue_counter_.get(), &one, sizeof(one))) != sizeof(one)) return false;
    const std::lock_guard lock(mutex_);
    if (queue_.empty()) return false;
    *job = std::move(queue_.front());
    queue_.pop_front();
    return true;
  }
  const std::shared_ptr<Connection> connection = Process::Get().FindConnection(event.data.u64);
  if (connection == nullptr) return false;
  connection->OnReadable(found);
  if (found->empty()) return false;
  *job = TakeFirst(found);
  return true;
}

Job ThreadPool::TakeFirst(std::vector<Job>* found) {
  Job first = std::move(found->front());
  found->erase(found->begin());
  Add(found);
  return first;
}

void ThreadPool::StayWith(Connection& connection) {
  if (!BeginStay()) return;
  if (connection.OfferExpress()) {
    std::vector<Job> found;
    while (connection.AwaitExpress(&found)) {
      if (!found.empty()) TakeFirst(&found).Run();
    }
  }
  EndStay();
}

// The thread that stays is missing among the others, and is replaced.
bool ThreadPool::BeginStay() {
  const std::lock_guard lock(mutex_);
  if (!started_ || staying_) return false;
  staying_ = true;
  if (idle_ == 0) Spawn();
  return true;
}

void ThreadPool::EndStay() {
  const std::lock_guard lock(mutex_);
  staying_ = false;
}

// With the last idle thread busy, another one waits in its place.
void ThreadPool::BeginJob() {
  const std::lock_guard lock(mutex_);
  if (--idle_ == 0 && started_) Spawn();
}

void ThreadPool::EndJob() {
  const std::lock_guard lock(mutex_);
  ++idle_;
}

void ThreadPool::Spawn() {
  if (spawned_ >= max_threads_ + (staying_ ? 1 : 0)) return;
  const std::string name = "binder:" + std::to_string(++spawned_);
  std::thread([this, name] {
    pthread_setname_np(pthread_self(), name.c_str());
    Run();
  }).detach();
}

void ThreadPool::Abandon(int replacement) {
  dup2(replacement, epoll_.get());
  dup2(replacement, queue_counter_.get());
}

}  // namespace bthal::binder

using bthal::binder::Process;

void ABinderProcess_startThreadPool() { Process::Get().pool().Start(); }

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
  Process::Get().pool().SetMaxThreads(numThreads);
  return true;
}

void ABinderProcess_joinThreadPool() { Process::Get().pool().Join(); }
