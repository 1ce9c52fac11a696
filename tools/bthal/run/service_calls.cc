#include "bthal/run/service_calls.h"

#include <android-base/stringprintf.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <host/service_registry.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using std::chrono::milliseconds;

std::atomic<milliseconds> g_patience{std::chrono::seconds(10)};

std::string PidOfService() {
  for (const auto& service : ::bthal::host::ListServices()) {
    if (service.instance == kHciService) return std::to_string(service.pid);
  }
  return "unknown";
}

// The one thread that waits for the next call, so that who calls for every packet does not start one each time. Never
// destroyed: threads that do not come back may still look at it.
struct IdleThread {
  std::mutex mutex;
  std::condition_variable given;
  std::function<void()> work;
  bool waiting = false;

  void WorkOn(std::function<void()> next) {
    for (;;) {
      std::exchange(next, nullptr)();
      std::unique_lock lock(mutex);
      if (waiting) return;
      waiting = true;
      given.wait(lock, [this] { return work != nullptr; });
      next = std::exchange(work, nullptr);
    }
  }
};

std::string NotPublished(const std::string& instance) {
  std::string error;
  if (!MeetingPlaceIsOpen(&error)) return error;
  return StringPrintf("no service runs on %s (%s is not published); start it with bthal supervise",
                      DeviceRoot().c_str(), instance.c_str());
}

}  // namespace

void RunElsewhere(std::function<void()> work) {
  static auto& idle = *new IdleThread;
  const std::lock_guard lock(idle.mutex);
  if (idle.waiting) {
    idle.waiting = false;
    idle.work = std::move(work);
    idle.given.notify_one();
  } else {
    std::thread([work = std::move(work)]() mutable { idle.WorkOn(std::move(work)); }).detach();
  }
}

void SetCallPatience(milliseconds patience) { g_patience = patience; }
milliseconds CallPatience() { return g_patience; }

std::string DoesNotAnswer() {
  const std::string pid = PidOfService();
  return StringPrintf("the service (pid %s) does not answer; end it (kill -KILL %s), a supervisor starts the next one",
                      pid.c_str(), pid.c_str());
}

::ndk::SpAIBinder FindService(const std::string& instance, std::string* error, bool* hangs) {
  ABinderProcess_startThreadPool();
  const std::function<::ndk::SpAIBinder()> find = [instance] {
    return ::ndk::SpAIBinder(AServiceManager_checkService(instance.c_str()));
  };
  const std::optional<::ndk::SpAIBinder> found = Called(find, error);
  if (hangs != nullptr) *hangs = !found;
  if (!found) return {};
  if (found->get() == nullptr) *error = NotPublished(instance);
  return *found;
}

bool AwaitService(const std::string& instance, milliseconds patience, std::string* error,
                  const std::function<bool()>& none_comes) {
  const auto published = [&] {
    return std::ranges::any_of(::bthal::host::ListServices(),
                               [&](const auto& service) { return service.alive && service.instance == instance; });
  };
  const auto in_vain = [&] { return none_comes && none_comes(); };
  if (published()) return true;
  if (!MeetingPlaceIsOpen(error)) return false;
  if (patience > milliseconds(0) && !in_vain()) {
    Complain(StringPrintf("waiting for the service (%g s)...", std::chrono::duration<double>(patience).count()));
    WaitUntil([&] { return published() || in_vain(); }, patience);
    if (published()) return true;
  }
  *error = NotPublished(instance);
  return false;
}

bool CallWorked(const ::ndk::ScopedAStatus& status, const char* what, std::string* error) {
  if (status.isOk()) return true;
  if (status.getStatus() == STATUS_DEAD_OBJECT) {
    *error = StringPrintf("%s: the service has died", what);
  } else if (status.getExceptionCode() == EX_SERVICE_SPECIFIC) {
    *error = StringPrintf("%s: the service refuses with error %d", what, status.getServiceSpecificError());
  } else {
    const std::string message = status.getMessage();
    *error = StringPrintf("%s: the service refuses: %s", what,
                          message.empty() ? status.getDescription().c_str() : message.c_str());
  }
  return false;
}

bool CallWorks(std::function<::ndk::ScopedAStatus()> call, const char* what, std::string* error, bool* hangs) {
  const std::optional<::ndk::ScopedAStatus> status = Called(std::move(call), error);
  if (hangs != nullptr) *hangs = !status;
  return status && CallWorked(*status, what, error);
}

}  // namespace bthal::tool
