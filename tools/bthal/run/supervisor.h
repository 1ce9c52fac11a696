// Keeps a program running, and says why it ended.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "bthal/run/line_relay.h"
#include "bthal/run/process.h"
#include "bthal/show/last_words.h"

namespace bthal::tool {

struct SupervisorOptions {
  std::vector<std::string> program;               // path and arguments
  bool once = false;                              // do not restart
  std::optional<int> max_restarts;                // give up after so many
  std::chrono::milliseconds stop_patience{5000};  // between SIGTERM and SIGKILL
};

// How long to wait before a restart: not at all after a death unlike the one before it. Those alike within the last
// minute make it longer, from the third on by far.
class BackOff {
 public:
  using Clock = std::chrono::steady_clock;

  // To be called at every death.
  std::chrono::milliseconds After(int wait_status, Clock::time_point now);
  // How many deaths alike it has seen in a row within a minute.
  size_t alike() const { return alike_.size(); }

 private:
  int last_status_ = 0;
  std::deque<Clock::time_point> alike_;
};

// Its standard output and error are passed on line by line, as far as someone reads them, and looked at for its last
// words.
class Supervisor {
 public:
  explicit Supervisor(SupervisorOptions options);

  // Until a signal asks for the end (0), the restarts are used up (1), or, with `once`, the program has ended (its
  // status; 128 + signal when it was killed). host::kRoleTakenStatus where the device root has a supervisor or a
  // service already: at once, or when the service is refused because of it.
  int Run();

 private:
  using Clock = std::chrono::steady_clock;

  struct End {
    int wait_status = 0;
    std::chrono::steady_clock::duration lasted{};
    std::vector<std::string> last_words;
    std::vector<std::string> crash_files;
  };

  // Refuses, having said so, where another supervises, or the service runs without us.
  bool Begin();
  // Whether it is the service that is to run, and another runs, having said so.
  bool ServiceIsTaken();
  std::optional<End> RunOnce(std::string* error);
  // Passes its output on until it has ended; nothing when the deadline passes or `interrupt_fd` is readable first.
  std::optional<int> Watch(Child& child, int output, Clock::time_point deadline, int interrupt_fd);
  int Stop(Child& child, int output);
  void PassOn(int fd);
  void EndLine();
  bool Pause(int wait_status);
  void Say(const std::string& line);
  int GiveUp(const std::string& why);
  void ReleaseWakeLock();

  const SupervisorOptions options_;
  LineRelay out_;
  std::string line_;  // what has come of the current line
  LastWords last_words_;
  BackOff back_off_;
};

}  // namespace bthal::tool
