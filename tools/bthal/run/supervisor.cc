#include "bthal/run/supervisor.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <hardware_legacy/power.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using std::chrono::milliseconds;

constexpr size_t kLongestLine = 4096;

void Say(const std::string& line) { fprintf(stderr, "supervise: %s\n", line.c_str()); }

double Seconds(std::chrono::steady_clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

// Wake locks of the kernel outlive the process that took them: without this the system would never sleep again.
void ReleaseWakeLock() {
  if (release_wake_lock(kWakeLockName) > 0) Say(StringPrintf("released the wake lock %s", kWakeLockName));
}

int ExitStatus(int wait_status) {
  return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

}  // namespace

void Supervisor::PassOn(int fd) {
  char piece[4096];
  const ssize_t count = TEMP_FAILURE_RETRY(read(fd, piece, sizeof(piece)));
  if (count <= 0) return;
  ::android::base::WriteFully(STDERR_FILENO, piece, static_cast<size_t>(count));
  for (const char c : std::string_view(piece, static_cast<size_t>(count))) {
    if (c == '\n') {
      last_words_.Look(line_);
      line_.clear();
    } else if (line_.size() < kLongestLine) {
      line_ += c;
    }
  }
}

int Supervisor::Stop(Child& child, ::android::base::unique_fd& output) {
  // SIGTERM whatever we were sent: it is what the service takes as a request to end in order.
  Say(StringPrintf("ending pid %d", child.pid()));
  child.Signal(SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + options_.stop_patience;
  std::optional<int> ended;
  while (!(ended = child.Wait(milliseconds(10))) && std::chrono::steady_clock::now() < deadline) {
    pollfd readable = {output.get(), POLLIN, 0};
    if (poll(&readable, 1, 0) > 0) PassOn(output.get());
  }
  if (!ended) {
    Say(StringPrintf("pid %d did not end within %g s: killing it", child.pid(), Seconds(options_.stop_patience)));
    child.Signal(SIGKILL);
    ended = child.Wait(milliseconds(-1));
  }
  ReleaseWakeLock();
  return ended.value_or(0);
}

std::optional<Supervisor::End> Supervisor::RunOnce(std::string* error) {
  auto [output, write_end] = MakePipe();
  if (!output.ok()) {
    *error = StringPrintf("cannot make a pipe: %s", strerror(errno));
    return std::nullopt;
  }
  const auto began = std::chrono::steady_clock::now();
  Child child = Child::Spawn({.arguments = options_.program,
                              .environment = {},
                              .standard_output = write_end.get(),
                              .standard_error = write_end.get(),
                              .signal_on_our_death = SIGTERM},
                             error);
  write_end.reset();
  if (!child.running()) return std::nullopt;
  Say(StringPrintf("started %s, pid %d", options_.program[0].c_str(), child.pid()));
  last_words_.Forget();
  line_.clear();
  std::optional<int> ended;
  while (!ended) {
    pollfd ready[] = {{output.get(), POLLIN, 0}, {child.exit_fd(), POLLIN, 0}, {InterruptFd(), POLLIN, 0}};
    poll(ready, 3, 1000);
    if (ready[0].revents & POLLIN) {
      PassOn(output.get());
    } else if (ready[0].revents != 0 || ready[1].revents != 0) {
      ended = child.Wait(milliseconds(100));
    }
    if (!ended && Interrupted()) ended = Stop(child, output);
  }
  for (pollfd rest = {output.get(), POLLIN, 0}; poll(&rest, 1, 0) > 0 && (rest.revents & POLLIN);) PassOn(output.get());
  if (!line_.empty()) last_words_.Look(line_);
  return End{*ended, std::chrono::steady_clock::now() - began, last_words_.Lines()};
}

int Supervisor::Run() {
  milliseconds pause = options_.first_pause;
  for (int restarts = 0;; ++restarts) {
    std::string error;
    const std::optional<End> end = RunOnce(&error);
    if (!end) return Complain(error);
    Say(StringPrintf("%s %s after %.1f s", options_.program[0].c_str(), ExitWords(end->wait_status).c_str(),
                     Seconds(end->lasted)));
    if (Interrupted()) return 0;
    for (const std::string& line : end->last_words) Say("  it said: " + line);
    ReleaseWakeLock();
    if (options_.once) return ExitStatus(end->wait_status);
    if (options_.max_restarts && restarts >= *options_.max_restarts) {
      return Complain(StringPrintf("gave up after %d %s", restarts, restarts == 1 ? "restart" : "restarts"));
    }
    if (end->lasted >= options_.healthy_after) pause = options_.first_pause;
    Say(StringPrintf("restarting in %g s", Seconds(pause)));
    if (!SleepUnlessInterrupted(pause)) return 0;
    pause = std::min(pause * 2, options_.longest_pause);
  }
}

}  // namespace bthal::tool
