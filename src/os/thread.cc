#define LOG_TAG "bthal.os"

#include "os/thread.h"

#include <errno.h>
#include <sched.h>
#include <string.h>

#include <exception>
#include <memory>
#include <utility>

#include <android-base/logging.h>

namespace android::hardware::bluetooth::os {
namespace {

struct Launch {
  const char* name;
  std::function<void()> body;
};

// Not noexcept, and neither is anything below it: a thread that is ended by force unwinds these frames.
void* Run(void* argument) {
  const std::unique_ptr<Launch> launch(static_cast<Launch*>(argument));
  pthread_setname_np(pthread_self(), launch->name);
  launch->body();
  return nullptr;
}

class OrdinaryScheduling {
 public:
  OrdinaryScheduling() {
    const sched_param parameters{};
    pthread_attr_init(&attributes_);
    pthread_attr_setinheritsched(&attributes_, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes_, SCHED_OTHER);
    pthread_attr_setschedparam(&attributes_, &parameters);
  }
  OrdinaryScheduling(const OrdinaryScheduling&) = delete;
  OrdinaryScheduling& operator=(const OrdinaryScheduling&) = delete;
  ~OrdinaryScheduling() { pthread_attr_destroy(&attributes_); }

  const pthread_attr_t* get() const { return &attributes_; }

 private:
  pthread_attr_t attributes_;
};

}  // namespace

Thread Thread::Start(const char* name, std::function<void()> body) {
  auto launch = std::make_unique<Launch>(Launch{name, std::move(body)});
  const OrdinaryScheduling scheduling;
  Thread thread;
  errno = pthread_create(&thread.handle_, scheduling.get(), Run, launch.get());
  thread.owns_ = errno == 0;
  if (thread.owns_) (void)launch.release();  // the thread's now
  return thread;
}

Thread Thread::StartOrDie(const char* name, std::function<void()> body) {
  Thread thread = Start(name, std::move(body));
  if (!thread.joinable()) {
    const int error = errno;
    LOG(FATAL) << "Thread: cannot start thread " << name << ": " << strerror(error) << " (" << error << ")";
  }
  return thread;
}

Thread::Thread(Thread&& other) noexcept : handle_(other.handle_), owns_(std::exchange(other.owns_, false)) {}

Thread& Thread::operator=(Thread&& other) noexcept {
  if (owns_) std::terminate();
  handle_ = other.handle_;
  owns_ = std::exchange(other.owns_, false);
  return *this;
}

Thread::~Thread() {
  if (owns_) std::terminate();
}

void Thread::join() {
  owns_ = false;
  pthread_join(handle_, nullptr);
}

void Thread::detach() {
  owns_ = false;
  pthread_detach(handle_);
}

}  // namespace android::hardware::bluetooth::os
