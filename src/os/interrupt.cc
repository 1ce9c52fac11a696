#include "os/interrupt.h"

#include <signal.h>

#include <mutex>

namespace android::hardware::bluetooth::os {

void InterruptThread(pthread_t thread) {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // without SA_RESTART
    sigaction(SIGUSR2, &action, nullptr);
  });
  pthread_kill(thread, SIGUSR2);
}

}  // namespace android::hardware::bluetooth::os
