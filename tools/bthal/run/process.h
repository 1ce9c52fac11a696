// Child processes that never outlive their owner.
#pragma once

#include <android-base/unique_fd.h>
#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bthal::tool {

struct SpawnOptions {
  std::vector<std::string> arguments;                            // [0] is the program's path
  std::vector<std::pair<std::string, std::string>> environment;  // set on top of our own
  int standard_input = -1;  // descriptors the child gets as 0, 1 and 2; -1: ours. They stay the caller's.
  int standard_output = -1;
  int standard_error = -1;
  int signal_on_our_death = SIGKILL;  // what the kernel sends the child should we die without a word
};

// A process in a process group of its own, so that a Ctrl-C in the terminal is ours to act on. The kernel watches the
// thread that called Spawn for signal_on_our_death, so call it from the main thread.
class Child {
 public:
  Child() = default;
  Child(Child&& other) noexcept { *this = std::move(other); }
  Child& operator=(Child&& other) noexcept;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child();  // kills the group if it still runs, and waits for it

  // Not running, with one line in `error`, when the program cannot be executed.
  static Child Spawn(const SpawnOptions& options, std::string* error);

  bool running() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // Readable as soon as the process has ended; -1 when there is none.
  int exit_fd() const { return pidfd_.get(); }

  // Sends `signal` to the process alone.
  void Signal(int signal) const;
  // The wait status once the process has ended; nothing after `timeout`. Whatever it left in its group is killed.
  std::optional<int> Wait(std::chrono::milliseconds timeout);
  // Kills the whole group and waits.
  void Kill();

 private:
  pid_t pid_ = -1;
  ::android::base::unique_fd pidfd_;
};

// "exited with status 3", "was killed by SIGABRT, core dumped".
std::string ExitWords(int wait_status);

// A program beside the running one, or where the package puts what is not for people.
std::string ProgramBeside(const std::string& name);

}  // namespace bthal::tool
