// Watches what the controller says of its own activity.
#pragma once

#include <android/binder_interface_utils.h>

#include <atomic>

#include "hci/hci_event_watcher.h"

namespace android::hardware::bluetooth::activitywatcher {

// Reads along in the answers to the stack's Get Controller Activity Energy Info and hands the figures to the activity
// statistics; it claims none of them. The service owns it and registers it with the flow control.
class ControllerActivityWatcher : public ::ndk::SharedRefBase, public hci::HciEventWatcher {
 public:
  ControllerActivityWatcher();

  void initialize();

  // False when it already watches, or does not watch.
  bool startWatcher();
  bool stopWatcher();

  bool OnEventReceive(const hci::HciPacket& event) override;

 private:
  std::atomic<bool> watching_{false};
};

}  // namespace android::hardware::bluetooth::activitywatcher
