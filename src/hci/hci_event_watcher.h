// Observers of received events.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// Sees every received event of one code; for Command Complete and Command Status only those of one opcode (0: any).
// Its owner keeps it alive from registration to the end of unregistration.
class HciEventWatcher {
 public:
  HciEventWatcher(std::string name, uint8_t event_code, uint16_t opcode)
      : name_(std::move(name)), event_code_(event_code), opcode_(opcode) {}
  virtual ~HciEventWatcher() = default;

  // Returns true to keep the event from the stack. Runs on the receive thread under the flow-control lock: it must not
  // call any operation of HciFlowControl.
  virtual bool OnEventReceive(const HciPacket& event) = 0;

  // The flow control has been halted: no answer will come any more. Same thread rules, on the halting thread. Here a
  // watcher wakes whoever waits for it.
  virtual void OnHalt() {}

  const std::string& name() const { return name_; }
  uint8_t event_code() const { return event_code_; }
  uint16_t opcode() const { return opcode_; }

 protected:
  HciEventWatcher(const HciEventWatcher&) = default;
  HciEventWatcher& operator=(const HciEventWatcher&) = default;

 private:
  std::string name_;
  uint8_t event_code_;
  uint16_t opcode_;
};

}  // namespace android::hardware::bluetooth::hci
