// The four event watchers through which debug central sees what the controller reports of itself.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "hci/hci_event_watcher.h"
#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

class DebugCentral;

// The watchers live as long as debug central does and are only registered and unregistered: a flow control that is
// halted, and refuses to forget them, never keeps a pointer to nothing.
class DebugMonitor {
 public:
  explicit DebugMonitor(DebugCentral& central);

  // Start with another flow control stops the earlier one first.
  void Start(hci::HciFlowControl& flow);
  void Stop();

 private:
  std::mutex mutex_;  // orders Start and Stop; held across their calls of flow control, and taken by no watcher
  hci::HciHandle monitored_;
  const std::vector<std::unique_ptr<hci::HciEventWatcher>> watchers_;
};

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
