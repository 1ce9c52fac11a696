#include "sim/base/tasks.h"

#include <errno.h>
#include <string.h>
#include <sys/eventfd.h>

namespace bthal::sim {

bool Tasks::Open(std::string* error) {
  wake_.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (wake_.ok()) return true;
  *error = std::string("cannot make an event descriptor: ") + strerror(errno);
  return false;
}

void Tasks::Add(std::function<void()> task) {
  {
    std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(task));
  }
  const uint64_t one = 1;
  // Only a full counter refuses, and then the thread is woken anyhow.
  if (wake_.ok()) (void)!write(wake_.get(), &one, sizeof(one));
}

void Tasks::Run() {
  uint64_t count = 0;
  if (read(wake_.get(), &count, sizeof(count)) < 0) return;
  std::vector<std::function<void()>> tasks;
  {
    std::lock_guard lock(mutex_);
    tasks.swap(waiting_);
  }
  for (const auto& task : tasks) task();
}

}  // namespace bthal::sim
