// What the service does when the platform tells it to end.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "os/thread_timer.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// How long the service may take to end when it is told to: who tells it does not wait much longer.
inline constexpr std::chrono::milliseconds kTerminationLimit{2500};

// Ends the process if it lives longer than `limit`: for last steps that wait for a controller, a client or a lock that
// may be what is stuck.
class TerminationDeadline {
 public:
  explicit TerminationDeadline(std::chrono::milliseconds limit);

 private:
  std::unique_ptr<os::ThreadTimer> timer_;
};

// Runs `steps` for each SIGTERM from now on, on a thread of its own that waits for nothing else: the handler itself
// only wakes it, because the steps take locks and wait for the receive thread. Signals that arrive during the steps are
// answered once, after them. A second call replaces the steps.
void HandleSigterm(std::function<void(int signum)> steps);
// Forgets the steps; waits for them if they run.
void ForgetSigterm();

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
