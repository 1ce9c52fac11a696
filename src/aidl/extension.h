// What the vendor extension services have in common.
#pragma once

#include <android/binder_auto_utils.h>

#include <atomic>
#include <string>

#include "aidl/extension_handle.h"
#include "hci/hci_event_watcher.h"
#include "os/log_as.h"

namespace android::hardware::bluetooth {

// An extension service `Service` of the Binder interface `Interface` (its Bn class): the process's one instance, and
// how it holds the flow control while Bluetooth is on. OnBluetoothEnabled and OnBluetoothDisabled are serialised by the
// service; everything else may be called from any thread.
template <typename Service, typename Interface>
class Extension : public Interface {
 public:
  using HciFlowControl = hci::HciFlowControl;
  using HciPacket = hci::HciPacket;

  Extension() { instance_ = static_cast<Service*>(this); }
  ~Extension() override { instance_ = nullptr; }

  // The process's one instance, null where none was made.
  static Service* GetInstance() { return instance_; }

  void OnBluetoothEnabled(HciFlowControl* flow_control) {
    os::LogAs(Service::kLogTag, ::android::base::DEBUG, __func__);
    hci_handle_.Set(flow_control);
  }

  void OnBluetoothDisabled() {
    os::LogAs(Service::kLogTag, ::android::base::DEBUG, __func__);
    hci_handle_.Clear();
  }

 protected:
  // The answer of an operation that is not offered; `what` is a sentence for the caller and the log.
  static ::ndk::ScopedAStatus Refuse(const char* operation, const char* what) {
    os::LogAs(Service::kLogTag, ::android::base::WARNING, std::string(operation) + ": refused: " + what);
    return ::ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_UNSUPPORTED_OPERATION, what);
  }

  ExtensionHandle hci_handle_;

 private:
  inline static std::atomic<Service*> instance_{nullptr};
};

// An extension service that also watches the Command Complete events of one opcode while Bluetooth is on.
template <typename Service, typename Interface>
class WatchingExtension : public Extension<Service, Interface>, public hci::HciEventWatcher {
 public:
  using HciPacket = hci::HciPacket;

  explicit WatchingExtension(uint16_t opcode) : HciEventWatcher(Service::kLogTag, hci::kCommandCompleteEvent, opcode) {}

  void OnBluetoothEnabled(hci::HciFlowControl* flow_control) {
    Extension<Service, Interface>::OnBluetoothEnabled(flow_control);
    if (flow_control != nullptr) flow_control->RegisterEventWatcher(this);
  }

  void OnBluetoothDisabled() {
    os::LogAs(Service::kLogTag, ::android::base::DEBUG, __func__);
    StopWatching();
  }

 protected:
  // For the destructor of `Service`: no event may come once parts of it are gone.
  void StopWatching() {
    if (const auto flow_control = this->hci_handle_.Clear()) flow_control->UnregisterEventWatcher(this);
  }
};

}  // namespace android::hardware::bluetooth
