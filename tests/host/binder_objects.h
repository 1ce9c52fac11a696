// Binder objects whose answers a test writes down where it needs them.
#pragma once

#include <aidl/android/hardware/bluetooth/BnBluetoothHci.h>
#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {

using Callbacks = ::aidl::android::hardware::bluetooth::IBluetoothHciCallbacks;
using Hci = ::aidl::android::hardware::bluetooth::IBluetoothHci;
using HciStatus = ::aidl::android::hardware::bluetooth::Status;
using ::ndk::ScopedAStatus;
using ::ndk::SharedRefBase;

// A function that one thread may replace while another calls it.
template <typename Signature>
class Handler;
template <typename Result, typename... Arguments>
class Handler<Result(Arguments...)> {
 public:
  using Function = std::function<Result(Arguments...)>;

  template <typename Body>
  Handler(Body body) : function_(std::move(body)) {}  // NOLINT(google-explicit-constructor): reads as a function does

  template <typename Body>
  Handler& operator=(Body body) {
    const std::lock_guard lock(mutex_);
    function_ = std::move(body);
    return *this;
  }

  Result operator()(Arguments... arguments) const {
    Function function;
    {
      const std::lock_guard lock(mutex_);
      function = function_;
    }
    return function(std::forward<Arguments>(arguments)...);
  }

 private:
  mutable std::mutex mutex_;
  Function function_;
};

class FakeHci : public ::aidl::android::hardware::bluetooth::BnBluetoothHci {
 public:
  Handler<ScopedAStatus()> on_close{[] { return ScopedAStatus::ok(); }};
  Handler<ScopedAStatus(const std::shared_ptr<Callbacks>&)> on_initialize{
      [](const auto&) { return ScopedAStatus::ok(); }};
  Handler<ScopedAStatus(const Bytes&)> on_command{[](const auto&) { return ScopedAStatus::ok(); }};

  ScopedAStatus close() override { return on_close(); }
  ScopedAStatus initialize(const std::shared_ptr<Callbacks>& callbacks) override { return on_initialize(callbacks); }
  ScopedAStatus sendHciCommand(const Bytes& command) override { return on_command(command); }
  ScopedAStatus sendAclData(const Bytes&) override { return ScopedAStatus::ok(); }
  ScopedAStatus sendIsoData(const Bytes&) override { return ScopedAStatus::ok(); }
  ScopedAStatus sendScoData(const Bytes&) override { return ScopedAStatus::ok(); }

  binder_status_t dump(int fd, const char** args, uint32_t count) override {
    std::string text = "dumped";
    for (uint32_t i = 0; i < count; ++i) text += std::string(" ") + args[i];
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? STATUS_OK : -EIO;
  }
};

class FakeCallbacks : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
 public:
  ~FakeCallbacks() override { on_destroyed(); }

  std::function<ScopedAStatus(const Bytes&)> on_event = [](const auto&) { return ScopedAStatus::ok(); };
  std::function<ScopedAStatus(HciStatus)> on_complete = [](auto) { return ScopedAStatus::ok(); };
  std::function<void()> on_destroyed = [] {};

  ScopedAStatus hciEventReceived(const Bytes& event) override { return on_event(event); }
  ScopedAStatus initializationComplete(HciStatus status) override { return on_complete(status); }
  ScopedAStatus aclDataReceived(const Bytes&) override { return ScopedAStatus::ok(); }
  ScopedAStatus isoDataReceived(const Bytes&) override { return ScopedAStatus::ok(); }
  ScopedAStatus scoDataReceived(const Bytes&) override { return ScopedAStatus::ok(); }
};

inline std::string HciInstance() { return std::string(Hci::descriptor) + "/default"; }

inline binder_exception_t Publish(const std::shared_ptr<FakeHci>& hci) {
  return AServiceManager_addService(hci->asBinder().get(), HciInstance().c_str());
}

// The service, waited for.
inline std::shared_ptr<Hci> FindHci() {
  return Hci::fromBinder(::ndk::SpAIBinder(AServiceManager_waitForService(HciInstance().c_str())));
}

// Publishes `hci` and serves its calls with `threads` threads of the pool and the calling one. Does not return.
inline int ServeHci(const std::shared_ptr<FakeHci>& hci, uint32_t threads = 1) {
  ABinderProcess_setThreadPoolMaxThreadCount(threads);
  ABinderProcess_startThreadPool();
  if (Publish(hci) != EX_NONE) return 1;
  ABinderProcess_joinThreadPool();
  return 1;
}

// A service of this process, on a root of its own.
class BinderTest : public ::testing::Test {
 protected:
  // Publishes it, to be served by `threads` threads; 0: by as many as the pool has.
  void Serve(uint32_t threads = 0) {
    if (threads != 0) ABinderProcess_setThreadPoolMaxThreadCount(threads);
    ABinderProcess_startThreadPool();
    ASSERT_EQ(Publish(hci_), EX_NONE);
  }

  const TempRoot root_;
  const std::shared_ptr<FakeHci> hci_ = SharedRefBase::make<FakeHci>();
};

// A process that publishes a service and serves it.
struct ServiceChild : ChildProcess {
  ServiceChild() : ChildProcess([] { return ServeHci(SharedRefBase::make<FakeHci>()); }) {}
};

}  // namespace bthal::test
