#include "os/thread_timer.h"

#include <android-base/unique_fd.h>
#include <errno.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <utility>

#include "os/thread.h"

namespace android::hardware::bluetooth::os {
namespace {

timespec ToTimespec(std::chrono::milliseconds duration) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  return {.tv_sec = seconds.count(), .tv_nsec = std::chrono::nanoseconds(duration - seconds).count()};
}

}  // namespace

// Shared with the thread, which may outlive the timer by the length of one callback.
struct ThreadTimer::State {
  void Run();

  std::function<void()> on_expiry;
  base::unique_fd fd;
  std::atomic<bool> stopped{false};
};

void ThreadTimer::State::Run() {
  uint64_t expiries = 0;
  while (TEMP_FAILURE_RETRY(read(fd.get(), &expiries, sizeof(expiries))) == sizeof(expiries) && !stopped) on_expiry();
}

std::unique_ptr<ThreadTimer> ThreadTimer::Create(const char* name, std::function<void()> on_expiry) {
  auto state = std::make_shared<State>();
  state->on_expiry = std::move(on_expiry);
  state->fd.reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
  if (!state->fd.ok()) return nullptr;
  Thread thread = Thread::Start(name, [state] { state->Run(); });
  if (!thread.joinable()) return nullptr;
  thread.detach();
  return std::unique_ptr<ThreadTimer>(new ThreadTimer(std::move(state)));
}

ThreadTimer::ThreadTimer(std::shared_ptr<State> state) : state_(std::move(state)) {}

ThreadTimer::~ThreadTimer() {
  state_->stopped = true;
  // The thread waits in its read: one last expiry, at once, lets it see that it is over.
  const itimerspec now{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_nsec = 1}};
  timerfd_settime(state_->fd.get(), 0, &now, nullptr);
}

bool ThreadTimer::Arm(std::chrono::milliseconds first, std::chrono::milliseconds interval) {
  const itimerspec times{.it_interval = ToTimespec(interval), .it_value = ToTimespec(first)};
  return timerfd_settime(state_->fd.get(), 0, &times, nullptr) == 0;
}

bool ThreadTimer::Disarm() {
  const itimerspec never{};
  return timerfd_settime(state_->fd.get(), 0, &never, nullptr) == 0;
}

}  // namespace android::hardware::bluetooth::os
