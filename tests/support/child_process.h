// A real process beside the test's own.
#pragma once

#include "support/test.h"

namespace bthal::test {

// Forks, and ends the child with what `body` returns. To be made before the test starts a thread.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<int()>& body);
  ~ChildProcess();  // kills it if it is still there
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  // Sends SIGKILL and waits for the end.
  void Kill();
  // Waits for the end by itself: its exit status, or minus the signal that ended it.
  int Wait();

 private:
  pid_t pid_;
};

// A pipe through which one process lets another go on. Made before the fork.
class Gate {
 public:
  Gate();
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  void Open(char what = '.') const;  // lets one waiter through, and tells it `what`
  char Pass() const;                 // waits
  int writer() const { return ends_[1]; }
  int reader() const { return ends_[0]; }

 private:
  int ends_[2];
};

}  // namespace bthal::test
