// The service's transport, open on a scripted controller's line, and what comes out of it.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "hci_flow_control/hci_flow_control.h"

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
  std::vector<std::vector<uint8_t>> Events() const;
  // How often the service has ended itself quietly.
  static int Deaths();

 private:
  std::atomic<android::hardware::bluetooth::hci::HciFlowControl*> flow_{nullptr};
  mutable std::mutex mutex_;
  std::vector<std::vector<uint8_t>> events_;
};

}  // namespace bthal::test
