#include "bthal/run/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace bthal::tool {
namespace {

// Whoever passes a Ctrl-C on (timeout(1) does) may send it twice at once; a person takes longer.
constexpr int64_t kSecondThoughtMs = 300;

std::atomic<int> g_signal{0};
std::atomic<pid_t> g_sender{0};
std::atomic<int64_t> g_signal_ms{0};
int g_pipe[2] = {-1, -1};

int64_t NowMs() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

bool IsIgnored(int signal) {
  struct sigaction action = {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void OnSignal(int signal, siginfo_t* info, void*) {
  int none = 0;
  if (g_signal == 0 && info != nullptr && info->si_code <= 0) g_sender = info->si_pid;
  if (g_signal.compare_exchange_strong(none, signal)) {
    g_signal_ms = NowMs();
    (void)!write(g_pipe[1], "", 1);
  } else if (signal == SIGINT && NowMs() - g_signal_ms >= kSecondThoughtMs) {
    _exit(128 + SIGINT);  // asked twice: do not wait for a clean end
  }
}

}  // namespace

void CatchInterrupts() {
  if (pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return;
  struct sigaction action = {};
  action.sa_sigaction = OnSignal;
  action.sa_flags = SA_RESTART | SA_SIGINFO;  // waits are polls, which a signal ends all the same; writes go on
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
  for (const int signal : {SIGHUP, SIGQUIT}) {
    if (!IsIgnored(signal)) sigaction(signal, &action, nullptr);
  }
}

void EndAsIf(int signal) { OnSignal(signal, nullptr, nullptr); }

int InterruptSignal() { return g_signal; }

pid_t InterruptSender() { return g_sender; }

int InterruptFd() { return g_pipe[0]; }

bool SleepUnlessInterrupted(std::chrono::duration<double> seconds) {
  const auto deadline = std::chrono::steady_clock::now() + seconds;
  while (!Interrupted()) {
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return true;
    const timespec timeout = {static_cast<time_t>(left.count() / 1000000),
                              static_cast<long>(left.count() % 1000000) * 1000};
    pollfd pipe = {g_pipe[0], POLLIN, 0};
    ppoll(&pipe, 1, &timeout, nullptr);
  }
  return false;
}

}  // namespace bthal::tool
