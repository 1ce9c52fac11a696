// Ctrl-C, a closed terminal and SIGTERM as something to ask for, so that everything owned is ended on the way out.
#pragma once

#include <sys/types.h>

#include <chrono>

namespace bthal::tool {

// From now on SIGINT, SIGTERM, SIGHUP and SIGQUIT no longer end the program; a second SIGINT, some time after the
// first, does. A SIGHUP or SIGQUIT that is ignored stays so: nohup(1) has it outlive its terminal. SIGINT does not: a
// script's shell ignores it for whatever it starts with `&`, and yet that is to end in order. Call once, on the main
// thread, before any other thread exists.
void CatchInterrupts();

// As if the signal had come: for what makes going on pointless.
void EndAsIf(int signal);

// Which signal came first; 0 while none has.
int InterruptSignal();
inline bool Interrupted() { return InterruptSignal() != 0; }
// The process that sent it; 0 where none did, as with a terminal's Ctrl-C.
pid_t InterruptSender();

// Readable once a signal has come; never read from it.
int InterruptFd();

// Until `seconds` have passed or a signal comes; whether they passed.
bool SleepUnlessInterrupted(std::chrono::duration<double> seconds);

// Until `done()` holds. False when `limit` passed or a signal came first.
template <typename Condition>
bool WaitUntil(Condition done, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (!SleepUnlessInterrupted(std::chrono::milliseconds(2))) return false;
  }
  return true;
}

}  // namespace bthal::tool
