// The four event watchers through which the diagnostics see what the controller reports of itself.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "hci/hci_event_watcher.h"
#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// Process-wide and never destroyed: the watchers live as long as the process does and are only registered and
// unregistered, so that a flow control that is halted, and refuses to forget them, never keeps a pointer to nothing.
// Any thread, but no watcher.
class DebugMonitor {
 public:
  static DebugMonitor& Get();

  // Registers the watchers with `flow`; does nothing but complain about null. With another flow control than the last
  // one it stops that one first. StopMonitor removes them; it is harmless without a monitor, and after the flow control
  // has gone.
  void StartMonitor(hci::HciFlowControl* flow);
  void StopMonitor();

 private:
  DebugMonitor();

  std::mutex mutex_;  // orders the two; held across their calls of flow control, and taken by no watcher
  hci::HciHandle monitored_;
  std::vector<std::unique_ptr<hci::HciEventWatcher>> watchers_;
};

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
