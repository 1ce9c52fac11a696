// A mutex that nobody can keep to himself.
#pragma once

#include <mutex>

namespace android::hardware::bluetooth::os {

// Whoever waits for it gets it before anybody who comes later, the thread that has just released it included. Of
// several that wait, one is next; the order of the others is the system's. A std::mutex that is released and taken
// again at once by a thread that does so without pause is hardly ever had by another.
//
// BasicLockable, any thread, not recursive. Uncontended it costs two mutexes.
class FairMutex {
 public:
  void lock() {
    const std::lock_guard next(next_);
    mutex_.lock();
  }
  void unlock() { mutex_.unlock(); }

 private:
  std::mutex next_;  // held by the one that is next, while it waits
  std::mutex mutex_;
};

}  // namespace android::hardware::bluetooth::os
