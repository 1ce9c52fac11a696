// What other threads ask the board's thread to do.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "sim/base/fd.h"

namespace bthal::sim {

class Tasks {
 public:
  // False with the reason in `error`.
  bool Open(std::string* error);
  bool ok() const { return wake_.ok(); }
  // Becomes readable when a task waits.
  int fd() const { return wake_.get(); }

  // From any thread.
  void Add(std::function<void()> task);
  // On the board's thread: does all that waits, in order.
  void Run();

 private:
  Fd wake_;
  std::mutex mutex_;
  std::vector<std::function<void()>> waiting_;
};

}  // namespace bthal::sim
