// What the vendor extension services have in common.
#pragma once

#include <android/binder_auto_utils.h>

#include <atomic>
#include <cstdint>
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

  Extension() { instance_ = this; }
  ~Extension() override { instance_ = nullptr; }

  // The process's one instance, null where none was made.
  static Service* GetInstance() { return static_cast<Service*>(instance_.load()); }

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
  // Not yet, and no longer, a Service while it is made and unmade.
  inline static std::atomic<Extension*> instance_{nullptr};
};

// An extension service that sends commands of one opcode while Bluetooth is on and claims exactly the answers to its
// own: a Command Complete, or the Command Status with which a controller refuses.
template <typename Service, typename Interface>
class WatchingExtension : public Extension<Service, Interface>, public hci::HciEventWatcher {
 public:
  using HciPacket = hci::HciPacket;

  explicit WatchingExtension(uint16_t opcode)
      : HciEventWatcher(Service::kLogTag, hci::kCommandCompleteEvent, opcode), status_watcher_(*this, opcode) {}

  void OnBluetoothEnabled(hci::HciFlowControl* flow_control) {
    pending_ = 0;  // what an earlier channel has not answered is not answered on this one
    Extension<Service, Interface>::OnBluetoothEnabled(flow_control);
    if (flow_control == nullptr) return;
    flow_control->RegisterEventWatcher(this);
    flow_control->RegisterEventWatcher(&status_watcher_);
  }

  void OnBluetoothDisabled() {
    os::LogAs(Service::kLogTag, ::android::base::DEBUG, __func__);
    StopWatching();
    pending_ = 0;
  }

 protected:
  // For the destructor of `Service`: no event may come once parts of it are gone.
  void StopWatching() {
    const auto flow_control = this->hci_handle_.Clear();
    if (flow_control == nullptr) return;
    flow_control->UnregisterEventWatcher(this);
    flow_control->UnregisterEventWatcher(&status_watcher_);
  }

  // A command is about to be sent; it was not, or has its answer: false when none is owed.
  void ExpectAnswer() { ++pending_; }
  bool CountOffAnswer() {
    uint32_t pending = pending_;
    while (pending != 0 && !pending_.compare_exchange_weak(pending, pending - 1)) continue;
    return pending != 0;
  }

  // Logs an answer and counts it off; false for the answer to somebody else's command.
  bool ClaimAnswer(const HciPacket& event, bool success) {
    os::LogAs(Service::kLogTag, success ? ::android::base::INFO : ::android::base::WARNING,
              "OnEventReceive: (" + std::to_string(pending_) + ") Recv " + (success ? "Success" : "Failure") +
                  " VSE <" + toString(event) + ">");
    return CountOffAnswer();
  }

  // The command of this object that was sent first has been refused by `event`. Thread rules of OnEventReceive.
  virtual void OnRefused(const HciPacket& /*event*/) {}

  std::atomic<uint32_t> pending_{0};  // commands sent and not yet answered

 private:
  class StatusWatcher : public hci::HciEventWatcher {
   public:
    StatusWatcher(WatchingExtension& owner, uint16_t opcode)
        : HciEventWatcher(Service::kLogTag, hci::kCommandStatusEvent, opcode), owner_(owner) {}

    bool OnEventReceive(const HciPacket& event) override {
      // A command that is merely begun has its Command Complete still to come.
      const bool begun = hci::kCommandStatusStatusOffset < event.size() && event[hci::kCommandStatusStatusOffset] == 0;
      if (begun) return owner_.pending_ != 0;
      if (!owner_.ClaimAnswer(event, false)) return false;
      owner_.OnRefused(event);
      return true;
    }

   private:
    WatchingExtension& owner_;
  };

  StatusWatcher status_watcher_;
};

}  // namespace android::hardware::bluetooth
