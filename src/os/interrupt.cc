#include "os/interrupt.h"

#include <signal.h>

#include <mutex>

namespace android::hardware::bluetooth::os {

void InterruptThread(pthread_t thread) {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction action {};  // without SA_RESTART
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
  });
  pthread_kill(thread, SIGUSR2);
}

}  // namespace android::hardware::bluetooth::os
