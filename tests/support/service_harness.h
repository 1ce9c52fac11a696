// The real service as a process of its own.
#pragma once

#include <optional>
#include <string>

#include "bthal/run/process.h"

namespace bthal::test {

// Starts the program on construction; on destruction kills it, if it still lives, reaps it, and fails the test if a
// sanitizer complained in it. What it prints and logs goes to a file. Construct it on the test's main thread: the
// process also ends with that thread.
class ServiceProcess {
 public:
  // `program`: SERVICE_PROGRAM. `root`: the device root that it gets as BTHAL_ROOT; its log, of `log_level` and above,
  // is <root>/service.log, to which a second process of the same root appends.
  ServiceProcess(const std::string& program, const std::string& root, const std::string& log_level = "verbose");
  ~ServiceProcess();

  pid_t pid() const { return process_.pid(); }

  // Waits until IBluetoothHci can be found; false if it cannot after 20 s, or the process ended.
  bool WaitUntilPublished();

  void Signal(int signal) const { process_.Signal(signal); }

  // Waits for the process's end and says how it was: "signal 9", "exit 0"; "alive" if it still lives after 20 s.
  std::string WaitForEndText();
  bool IsAlive() { return !WaitForEnd(std::chrono::seconds(0)); }

  // What this process, and its predecessors on the same root, logged.
  std::string Log() const;
  size_t CountInLog(const std::string& text) const;
  // Waits until the log holds `text`, `times` times; false after 20 s.
  bool WaitForLog(const std::string& text, size_t times = 1) const;

 private:
  std::optional<int> WaitForEnd(std::chrono::milliseconds patience);

  std::string log_path_;
  tool::Child process_;
  std::optional<int> status_;
};

}  // namespace bthal::test
