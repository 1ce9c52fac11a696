#include "os/kill_self.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace android::hardware::bluetooth::os {
namespace {

constexpr int kKilledExitStatus = 128 + SIGKILL;

std::atomic<void (*)()> g_ending_for_test{nullptr};

}  // namespace

void KillSelf() {
  if (auto* ending = g_ending_for_test.load()) {
    ending();
    return;
  }
  kill(getpid(), SIGKILL);
  _exit(kKilledExitStatus);
}

void SetKillSelfForTest(void (*ending)()) { g_ending_for_test = ending; }

}  // namespace android::hardware::bluetooth::os
