// What one poll thread of the coexistence device polls by and is stopped by.
#pragma once

#include <android-base/unique_fd.h>

#include <atomic>
#include <mutex>

#include "coex_device/coex_device.h"

namespace android::hardware::bluetooth::coex_device {

// Shared between the thread and the device, so that a thread that is slow to end never looks at what belongs to its
// successor.
struct CoexDevice::PollSession {
  std::atomic<bool> running{true};
  base::unique_fd wake_receiver;  // hangs up when the device closes the other end

  std::mutex mutex;       // guards the two flags
  bool forcible = false;  // the thread can be ended by SIGUSR1
  bool done = false;      // it has nothing left to do but return; while false under the mutex it is surely alive
};

}  // namespace android::hardware::bluetooth::coex_device
