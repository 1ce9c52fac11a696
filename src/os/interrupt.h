// Getting another thread out of a blocking system call.
#pragma once

#include <pthread.h>

namespace android::hardware::bluetooth::os {

// Makes a system call in which `thread` blocks return with EINTR, or with what it has done so far. Does nothing to a
// thread that is in none. The caller sees to it that the thread lives. It uses SIGUSR2, which this installs a handler
// for.
void InterruptThread(pthread_t thread);

}  // namespace android::hardware::bluetooth::os
