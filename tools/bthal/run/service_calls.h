// What every call to a published service needs. Every failure leaves one line in `error`.
#pragma once

#include <android/binder_auto_utils.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "bthal/run/interrupt.h"

namespace bthal::tool {

// How long a call may take, 10 s unless set, before the service counts as one that does not answer.
void SetCallPatience(std::chrono::milliseconds patience);
std::chrono::milliseconds CallPatience();

// "the service (pid 7) does not answer; ..."
std::string DoesNotAnswer();

// Runs `work` on another thread: one that is idle, or a new one. It may never come back, so it is never waited for.
void RunElsewhere(std::function<void()> work);

// A call on another thread: a service that never comes back must not keep the user from leaving. What the call needs
// must belong to it.
template <typename Result>
std::future<Result> BeginCall(std::function<Result()> call) {
  auto promise = std::make_shared<std::promise<Result>>();
  std::future<Result> result = promise->get_future();
  RunElsewhere([promise, call = std::move(call)] { promise->set_value(call()); });
  return result;
}

template <typename Result>
bool Returns(const std::future<Result>& call, std::chrono::milliseconds patience) {
  constexpr std::chrono::milliseconds kLook{2};
  return WaitUntil([&] { return call.wait_for(kLook) == std::future_status::ready; }, patience);
}

// What the call returns, within the patience; nothing otherwise.
template <typename Result>
std::optional<Result> Called(std::function<Result()> call, std::string* error) {
  std::future<Result> result = BeginCall(std::move(call));
  if (Returns(result, CallPatience())) return result.get();
  *error = Interrupted() ? "interrupted" : DoesNotAnswer();
  return std::nullopt;
}

// Not null, but where nothing that lives is published under the name; `hangs` where it lives and does not answer.
::ndk::SpAIBinder FindService(const std::string& instance, std::string* error, bool* hangs = nullptr);

// Waits until it is published by a process that lives, and says at once that it does. Not any longer once
// `none_comes()`, where that is given.
bool AwaitService(const std::string& instance, std::chrono::milliseconds patience, std::string* error,
                  const std::function<bool()>& none_comes = {});

// Whether it was worked; `what` says what failed, "cannot take the HAL".
bool CallWorked(const ::ndk::ScopedAStatus& status, const char* what, std::string* error);

// Calls, and the same of what comes back.
bool CallWorks(std::function<::ndk::ScopedAStatus()> call, const char* what, std::string* error, bool* hangs = nullptr);

}  // namespace bthal::tool
