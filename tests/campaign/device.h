// The whole device, in processes that may be killed: a board, and the service under a supervisor, on one root.
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bthal/run/process.h"

namespace bthal::campaign {

using std::chrono::milliseconds;

// What is not as it should be.
struct Problem {
  bool hung = false;
  std::string what;
};

class Device {
 public:
  // `folder` holds the device's root and, beside it, what the processes print.
  explicit Device(std::string folder);
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device() { SwitchOff(); }

  // From an empty root to a board and a service, of which neither has done anything yet. What starts something throws
  // Problem when it cannot.
  void SwitchOn();
  void SwitchOff();

  void StartBoard();
  // Under a supervisor that tells its end and releases its wake lock; whoever restarts it is the caller.
  void StartService();
  tool::Child StartClient(const std::vector<std::string>& arguments);
  // From the next start of the service on.
  void Accelerate(bool accelerate) const;

  tool::Child& board() { return board_; }
  // The process itself; 0 once it has ended.
  pid_t service() const;
  // As a shell has it, 128 + signal, once it has ended.
  std::optional<int> ServiceEnd(milliseconds patience);
  void KillService();

  // What the processes have printed since the last Forget.
  std::string Log(const std::string& name) const;
  void Forget() const;
  // What the logs ended with.
  std::string LastLines() const;

  // Remembers what lies in the root, with a service at work and no client.
  void TakeStock() { stock_ = Nodes(); }
  // What lies there beyond that, or no longer; sockets of processes that are gone; files that are not finished.
  std::string Leftovers() const;
  // Waits until nobody holds the wake lock any more.
  bool WakeLockGoes(milliseconds patience) const;

  const std::string& root() const { return root_; }
  const std::string& folder() const { return folder_; }

 private:
  tool::Child Start(const std::vector<std::string>& arguments, const std::string& log) const;
  std::set<std::string> Nodes() const;
  size_t BoardsInLog() const;

  const std::string folder_;
  const std::string root_;
  tool::Child board_;
  tool::Child supervisor_;
  std::set<std::string> stock_;
};

}  // namespace bthal::campaign
