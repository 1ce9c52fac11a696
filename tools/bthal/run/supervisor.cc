#include "bthal/run/supervisor.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <hardware_legacy/power.h>
#include <host/role.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/death_words.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::bthal::host::kRoleTakenStatus;
using std::chrono::milliseconds;

constexpr size_t kLongestLine = 4096;
// What a wrapper of the service leaves behind is killed with it, but not waited for.
constexpr milliseconds kLetGoPatience{500};
constexpr int kPieceBytes = 4096;
constexpr int kPipeBytes = 65536;

double Seconds(std::chrono::steady_clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

int ExitStatus(int wait_status) {
  return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

}  // namespace

milliseconds BackOff::After(int wait_status, Clock::time_point now) {
  constexpr size_t kTooOften = 3;
  constexpr milliseconds kShort{100};
  constexpr milliseconds kLong{1000};
  constexpr milliseconds kLongest{5000};
  if (wait_status != last_status_) alike_.clear();
  last_status_ = wait_status;
  alike_.push_back(now);
  while (now - alike_.front() > std::chrono::minutes(1)) alike_.pop_front();
  if (alike_.size() < kTooOften) return kShort * (alike_.size() - 1);
  return std::min<milliseconds>(kLong * (1 << std::min<size_t>(alike_.size() - kTooOften, 8)), kLongest);
}

Supervisor::Supervisor(SupervisorOptions options) : options_(std::move(options)), out_(STDERR_FILENO, "supervise") {}

// Never by way of stdio, which waits for a reader.
void Supervisor::Say(const std::string& line) { out_.Put("supervise: " + line + "\n"); }

int Supervisor::GiveUp(const std::string& why) {
  out_.Put("bthal: " + why + "\n");
  return 1;
}

bool Supervisor::Begin() {
  if (const pid_t other = ::bthal::host::ClaimRole(::bthal::host::kSupervisorRole)) {
    GiveUp(StringPrintf("a supervisor is already running on %s (pid %d)", DeviceRoot().c_str(), other));
    return false;
  }
  return !ServiceIsTaken();
}

bool Supervisor::ServiceIsTaken() {
  const pid_t service = ::bthal::host::HolderOfRole(::bthal::host::kServiceRole);
  if (service == 0 || ::android::base::Basename(options_.program[0]) != kServiceProgram) return false;
  GiveUp(StringPrintf("a service is already running on %s (pid %d); end it first", DeviceRoot().c_str(), service));
  return true;
}

// Wake locks of the kernel outlive the process that took them: without this the system would never sleep again. One
// that a living service has, which is not ours then, is left to it.
void Supervisor::ReleaseWakeLock() {
  const auto vacant = [] { return ::bthal::host::HolderOfRole(::bthal::host::kServiceRole) == 0; };
  if (!WaitUntil(vacant, kLetGoPatience)) return;
  if (release_wake_lock(kWakeLockName) > 0) Say(StringPrintf("released the wake lock %s", kWakeLockName));
}

void Supervisor::EndLine() {
  last_words_.Look(line_);
  out_.Put(std::exchange(line_, "") + "\n");
}

void Supervisor::PassOn(int fd) {
  char piece[kPieceBytes];
  const ssize_t count = TEMP_FAILURE_RETRY(read(fd, piece, sizeof(piece)));
  if (count <= 0) return;
  for (const char c : std::string_view(piece, static_cast<size_t>(count))) {
    if (c != '\n') line_ += c;
    if (c == '\n' || line_.size() == kLongestLine) EndLine();
  }
}

std::optional<int> Supervisor::Watch(Child& child, int output, Clock::time_point deadline, int interrupt_fd) {
  pollfd ready[] = {{child.exit_fd(), POLLIN, 0}, {output, POLLIN, 0}, {interrupt_fd, POLLIN, 0}};
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return std::nullopt;
    poll(ready, 3, static_cast<int>(std::min(left, milliseconds(1000)).count()));
    if (ready[2].revents != 0) return std::nullopt;
    if ((ready[1].revents & POLLIN) != 0) {
      PassOn(output);
    } else if (ready[1].revents != 0) {
      ready[1].fd = -1;  // nobody can write there any more
    }
    // Looked at even while there is something to read: what outlives the child may write for ever.
    const std::optional<int> ended = child.Wait(milliseconds(0));
    if (ended) return ended;
  }
}

// SIGTERM whatever we were sent: it is what the service takes as a request to end in order.
int Supervisor::Stop(Child& child, int output) {
  Say(StringPrintf("ending pid %d", child.pid()));
  child.Signal(SIGTERM);
  std::optional<int> ended = Watch(child, output, Clock::now() + options_.stop_patience, -1);
  if (!ended) {
    Say(StringPrintf("pid %d did not end within %g s: killing it", child.pid(), Seconds(options_.stop_patience)));
    child.Signal(SIGKILL);
    ended = child.Wait(milliseconds(-1));
  }
  ReleaseWakeLock();
  return ended.value_or(0);
}

std::optional<Supervisor::End> Supervisor::RunOnce(std::string* error) {
  ::android::base::unique_fd output;
  ::android::base::unique_fd write_end;
  if (!::android::base::Pipe(&output, &write_end)) {
    *error = StringPrintf("cannot make a pipe: %s", strerror(errno));
    return std::nullopt;
  }
  const auto began = Clock::now();
  timespec started = {};
  clock_gettime(CLOCK_REALTIME_COARSE, &started);  // by which files are dated
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
  std::optional<int> ended = Watch(child, output.get(), began + std::chrono::years(1), InterruptFd());
  if (!ended) ended = Stop(child, output.get());
  const auto lasted = Clock::now() - began;
  // At most what the pipe held when it died.
  pollfd rest = {output.get(), POLLIN, 0};
  for (int i = 0; i < kPipeBytes / kPieceBytes && poll(&rest, 1, 0) > 0 && (rest.revents & POLLIN) != 0; ++i) {
    PassOn(output.get());
  }
  if (!line_.empty()) EndLine();
  return End{*ended, lasted, last_words_.Lines(), CrashFilesSince(started)};
}

// False when the user asked for the end meanwhile.
bool Supervisor::Pause(int wait_status) {
  const milliseconds pause = back_off_.After(wait_status, BackOff::Clock::now());
  if (back_off_.alike() > 2) {
    Say(StringPrintf("the same death %zu times within a minute: slowing down; look into what it said",
                     back_off_.alike()));
  }
  Say(pause.count() == 0 ? "restarting at once" : StringPrintf("restarting in %g s", Seconds(pause)));
  return SleepUnlessInterrupted(pause);
}

int Supervisor::Run() {
  if (!Begin()) return kRoleTakenStatus;
  for (int restarts = 0;; ++restarts) {
    std::string error;
    const std::optional<End> end = RunOnce(&error);
    if (!end) return GiveUp(error);
    Say(StringPrintf("%s %s after %.1f s", options_.program[0].c_str(), ExitWords(end->wait_status).c_str(),
                     Seconds(end->lasted)));
    if (Interrupted()) return 0;
    if (const std::string cause = CauseOfDeath(end->last_words); !cause.empty()) Say("  " + cause);
    for (const std::string& line : end->last_words) Say("  it said: " + line);
    for (const std::string& file : end->crash_files) Say("  it left: " + file);
    if (ExitStatus(end->wait_status) == kRoleTakenStatus && ServiceIsTaken()) return kRoleTakenStatus;
    ReleaseWakeLock();
    if (options_.once) return ExitStatus(end->wait_status);
    if (options_.max_restarts && restarts >= *options_.max_restarts) {
      return GiveUp(StringPrintf("gave up after %d %s", restarts, restarts == 1 ? "restart" : "restarts"));
    }
    if (!Pause(end->wait_status)) return 0;
  }
}

}  // namespace bthal::tool
