// The service's transport, open on a scripted controller's line, and what comes out of it.
#pragma once

#include "hci_flow_control/hci_flow_control.h"
#include "support/scripted_controller.h"
#include "support/test.h"

namespace bthal::test {

// One at a time, after the controller has been made. Also replaces the service's quiet death by a count, so that a test
// sees what comes after it.
class UartTransport {
 public:
  UartTransport();   // throws when the line cannot be opened
  ~UartTransport();  // closes it
  UartTransport(const UartTransport&) = delete;
  UartTransport& operator=(const UartTransport&) = delete;

  // Null once closed.
  android::hardware::bluetooth::hci::HciFlowControl* flow() const { return flow_; }
  void Close();

  // The events that reached the stack, in order.
  std::vector<Bytes> Events() const;
  // How often the service has ended itself quietly.
  static int Deaths();

 private:
  std::atomic<android::hardware::bluetooth::hci::HciFlowControl*> flow_{nullptr};
  mutable std::mutex mutex_;
  std::vector<Bytes> events_;
};

// The transport, with a scripted controller at its other end.
class TransportTest : public LoggedTest {
 protected:
  bool EventsReach(size_t count) {
    return WaitFor([&] { return transport_.Events().size() == count; });
  }

  ScriptedController controller_{root_};
  UartTransport transport_;
};

}  // namespace bthal::test
