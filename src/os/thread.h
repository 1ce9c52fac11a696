// The one way in which the service starts a thread.
#pragma once

#include <pthread.h>

#include <functional>

namespace android::hardware::bluetooth::os {

// Owns one thread. Every thread has a name, and the ordinary scheduling policy whatever its starter has: what the
// receive thread starts does not run at that thread's real-time priority. An object that still owns a thread when it is
// destroyed or assigned to ends the process. One object is used by one thread at a time.
class Thread {
 public:
  // Starts a thread that runs `body`; `name` has at most 15 characters. Where the system has no thread to give, the
  // result owns none and errno says why.
  static Thread Start(const char* name, std::function<void()> body);
  // For threads that the service cannot do without: ends the process, saying why, where there is none.
  static Thread StartOrDie(const char* name, std::function<void()> body);

  Thread() = default;  // owns none
  Thread(Thread&& other) noexcept;
  Thread& operator=(Thread&& other) noexcept;
  ~Thread();

  // Whether it owns a thread, running or ended.
  bool joinable() const { return owns_; }
  // Wait for its end; let it go on by itself. Only while joinable.
  void join();
  void detach();

  bool IsCurrent() const { return owns_ && pthread_equal(handle_, pthread_self()) != 0; }
  // Valid while joinable.
  pthread_t native_handle() const { return handle_; }

 private:
  pthread_t handle_{};
  bool owns_ = false;
};

}  // namespace android::hardware::bluetooth::os
