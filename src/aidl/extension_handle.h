// How an extension service holds the flow control between Bluetooth's going on and off.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth {

// Any thread. Lock() is for one use; it is null while Bluetooth is off and when the transport has gone.
class ExtensionHandle {
 public:
  void Set(hci::HciFlowControl* flow_control) {
    const std::lock_guard lock(mutex_);
    handle_ = hci::MakeHandle(flow_control);
  }

  std::shared_ptr<hci::HciFlowControl> Lock() const {
    const std::lock_guard lock(mutex_);
    return handle_.lock();
  }

  // Forgets the handle and returns what it was.
  std::shared_ptr<hci::HciFlowControl> Clear() {
    const std::lock_guard lock(mutex_);
    return std::exchange(handle_, {}).lock();
  }

 private:
  mutable std::mutex mutex_;
  hci::HciHandle handle_;
};

}  // namespace android::hardware::bluetooth
