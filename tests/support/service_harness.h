// The real service as a process of its own.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace bthal::test {

// Starts the program on construction; on destruction kills it, if it still lives, reaps it, and fails the test if a
// sanitizer complained in it. What it prints and logs goes to a file. Construct it on the test's main thread: the
// process also ends with that thread.
class ServiceProcess {
 public:
  // `program`: SERVICE_PROGRAM. `root`: the device root that it gets as BTHAL_ROOT; its log, of `log_level` and above,
  // is <root>/service.log, to which a second process of the same root appends.
  ServiceProcess(const std::string& program, const std::string& root, const std::string& log_level = "verbose");
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;
  ~ServiceProcess();

  pid_t pid() const { return pid_; }

  // Waits until IBluetoothHci can be found; false if it cannot after 20 s, or the process ended.
  bool WaitUntilPublished();

  void Signal(int signal) const;

  // Waits for the process's end and returns its wait status (see waitpid); nothing if it still lives after 20 s.
  std::optional<int> WaitForEnd();
  // The same, as "signal 9" or "exit 0"; "alive" if it still lives.
  std::string WaitForEndText();
  bool IsAlive();

  // What this process, and its predecessors on the same root, logged.
  std::string Log() const;
  size_t CountInLog(const std::string& text) const;
  // Waits until the log holds `text`, `times` times; false after 20 s.
  bool WaitForLog(const std::string& text, size_t times = 1) const;

 private:
  pid_t pid_ = -1;
  std::string log_path_;
  std::optional<int> status_;
};

}  // namespace bthal::test
