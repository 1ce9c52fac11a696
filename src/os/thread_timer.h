// A timer whose expiries run on a thread of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace android::hardware::bluetooth::os {

// On the monotonic clock. It does what a POSIX timer with thread notification does, with one thread for the timer's
// life instead of a new one for every expiry. All methods may be called from any thread, also from inside the callback.
class ThreadTimer {
 public:
  // Starts the timer's thread, disarmed. `on_expiry` runs on that thread; `name` (at most 15 characters) names it.
  // Null, with errno set, when no descriptor or no thread can be had.
  static std::unique_ptr<ThreadTimer> Create(const char* name, std::function<void()> on_expiry);

  ThreadTimer(const ThreadTimer&) = delete;
  ThreadTimer& operator=(const ThreadTimer&) = delete;

  // Ends the thread, but does not wait for a callback that runs, so that it may be called under a lock which the
  // callback takes. A callback must therefore cope with finding its timer gone.
  ~ThreadTimer();

  // First expiry after `first` (more than zero), then one every `interval` (zero: only the first); what a slow callback
  // overran is merged into one. Replaces an earlier arming. False, with errno set, when the system refuses.
  bool Arm(std::chrono::milliseconds first, std::chrono::milliseconds interval);
  bool Disarm();

 private:
  struct State;

  explicit ThreadTimer(std::shared_ptr<State> state);

  std::shared_ptr<State> state_;
};

}  // namespace android::hardware::bluetooth::os
