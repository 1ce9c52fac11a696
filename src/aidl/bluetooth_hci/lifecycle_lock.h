// Whose turn it is to open or close the HAL.
#pragma once

#include <condition_variable>
#include <mutex>

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// A lock for std::unique_lock and std::lock_guard. Unlike a mutex it may be released on another thread than the one
// that took it, so that whoever starts a bring-up on a background thread can pass its turn on to that thread without a
// gap.
class LifecycleLock {
 public:
  void lock() {
    std::unique_lock guard(mutex_);
    released_.wait(guard, [this] { return !taken_; });
    taken_ = true;
  }

  bool try_lock() {
    const std::lock_guard guard(mutex_);
    if (taken_) return false;
    taken_ = true;
    return true;
  }

  void unlock() {
    const std::lock_guard guard(mutex_);
    taken_ = false;
    released_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  bool taken_ = false;
};

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
