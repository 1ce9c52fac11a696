// Keeps a program running, and says why it ended.
#pragma once

#include <android-base/unique_fd.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "bthal/run/process.h"
#include "bthal/show/last_words.h"

namespace bthal::tool {

struct SupervisorOptions {
  std::vector<std::string> program;  // path and arguments
  bool once = false;                 // do not restart
  std::optional<int> max_restarts;   // give up after so many
  std::chrono::milliseconds first_pause{100};
  std::chrono::milliseconds longest_pause{5000};
  std::chrono::milliseconds healthy_after{10000};  // a run of this length starts the pauses anew
  std::chrono::milliseconds stop_patience{5000};   // between SIGTERM and SIGKILL
};

// Its standard output and error are passed on as they are, and looked at for its last words.
class Supervisor {
 public:
  explicit Supervisor(SupervisorOptions options) : options_(std::move(options)) {}

  // Until a signal asks for the end (0), the restarts are used up (1), or, with `once`, the program has ended (its
  // status; 128 + signal when it was killed).
  int Run();

 private:
  struct End {
    int wait_status = 0;
    std::chrono::steady_clock::duration lasted{};
    std::vector<std::string> last_words;
  };

  std::optional<End> RunOnce(std::string* error);
  int Stop(Child& child, ::android::base::unique_fd& output);
  void PassOn(int fd);

  const SupervisorOptions options_;
  std::string line_;  // what has come of the current line
  LastWords last_words_;
};

}  // namespace bthal::tool
