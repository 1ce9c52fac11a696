#define LOG_TAG "bthal.qnlproto"

#include "btqnl_protocol/commands.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <chrono>
#include <future>
#include <mutex>

#include "debug_central/debug_central.h"
#include "hci/hci_command.h"
#include "hci_flow_control/vendor_command.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::StringPrintf;

constexpr std::chrono::seconds kCompletionTimeout(2);
// What a Command Complete without a status byte counts as: the controller's own "unspecified error".
constexpr uint8_t kStatusUnspecifiedError = 0x1F;

// The most recent Command Complete delivered to a waiting command. The receive thread writes it before the command's
// promise is kept, the waiting thread reads it afterwards.
struct LastEvent {
  std::mutex mutex;
  hci::HciPacket event;
};

LastEvent& Last() {
  static auto& last = *new LastEvent;
  return last;
}

void SetLastEvent(const hci::HciPacket& event) {
  const std::lock_guard lock(Last().mutex);
  Last().event = event;  // a copy: the received packet may lend the reader's buffer
}

std::string HexDump(const hci::HciPacket& packet) {
  std::string text;
  for (size_t i = 0; i < packet.size(); ++i) text += StringPrintf(i == 0 ? "%02x" : " %02x", packet[i]);
  return text;
}

// Waits for one command's Command Complete. The first answer counts and is kept from the stack; whatever matches later,
// while the waiting thread is on its way to remove the watcher, goes its normal way. All under the flow-control lock.
class BtqnlEventWatcher : public hci::HciEventWatcher {
 public:
  BtqnlEventWatcher(uint16_t opcode, std::promise<uint8_t>* promise)
      : HciEventWatcher("bthal.qnlproto", hci::kCommandCompleteEvent, opcode), promise_(promise) {}

  bool OnEventReceive(const hci::HciPacket& event) override {
    if (answered_) return false;
    const uint8_t status = event.size() > hci::kCommandCompleteStatusOffset ? event[hci::kCommandCompleteStatusOffset]
                                                                            : kStatusUnspecifiedError;
    if (status == 0) {
      LOG(VERBOSE) << "OnEventReceive: Recv Success VSE " << HexDump(event);
    } else {
      LOG(WARNING) << "OnEventReceive: Recv Failure VSE " << HexDump(event);
    }
    SetLastEvent(event);
    Answer(status);
    return true;
  }

  void OnHalt() override {
    if (!answered_) Answer(kStatusTimedOut);
  }

  // For the waiting thread once the watcher is out of flow control's reach: nothing came, and nothing will.
  void GiveUp() { OnHalt(); }

 private:
  void Answer(uint8_t status) {
    answered_ = true;
    promise_->set_value(status);
  }

  std::promise<uint8_t>* promise_;
  bool answered_ = false;
};

}  // namespace

uint8_t btqnl_send_command_wait_complete(hci::HciFlowControl* flow, uint16_t opcode, uint8_t length,
                                         const uint8_t* params) {
  std::promise<uint8_t> promise;
  auto completion = promise.get_future();
  BtqnlEventWatcher watcher(opcode, &promise);
  const hci::HciPacket command = hci::BuildCommand(opcode, {params, size_t{length}});
  if (flow == nullptr) {
    LOG(WARNING) << "btqnl_send_command_wait_complete: Unable to send command";
    return kStatusNoFlowControl;
  }

  SetLastEvent({});
  flow->RegisterEventWatcher(&watcher);
  // What never went out is never answered: a halted flow control and a dead port are not waited for.
  if (hci::SendVendorCommand(*flow, command) != 0) completion.wait_for(kCompletionTimeout);
  flow->UnregisterEventWatcher(&watcher);
  watcher.GiveUp();

  const uint8_t status = completion.get();
  if (status != 0) {
    LOG(ERROR) << "btqnl_send_command_wait_complete"
               << StringPrintf(": 0x%04x LEN 0x%02x Result 0x%02x", opcode, length, status);
    DebugCentral::Get().UpdateRecord(AnchorType::kCommandFailed,
                                     StringPrintf("%s: opcode 0x%04x LEN 0x%02x Result 0x%02x",
                                                  "btqnl_send_command_wait_complete", opcode, length, status));
  } else {
    LOG(DEBUG) << "btqnl_send_command_wait_complete"
               << StringPrintf(": 0x%04x LEN 0x%02x Result 0x%02x", opcode, length, status);
  }
  return status;
}

void btqnl_send_command_no_wait(hci::HciFlowControl* flow, uint16_t opcode, uint8_t length, const uint8_t* params) {
  const hci::HciPacket command = hci::BuildCommand(opcode, {params, size_t{length}});
  if (flow == nullptr) {
    LOG(WARNING) << "btqnl_send_command_no_wait: Unable to send command";
    return;
  }
  hci::SendVendorCommand(*flow, command, /*completed=*/false);
  LOG(DEBUG) << StringPrintf("btqnl_send_command_no_wait: 0x%04x LEN 0x%02x", opcode, length);
}

hci::HciPacket btqnl_last_command_complete(uint16_t opcode) {
  const std::lock_guard lock(Last().mutex);
  const hci::HciPacket& event = Last().event;
  return hci::ReadOpcode(event, hci::kCommandCompleteOpcodeOffset) == opcode ? event : hci::HciPacket();
}

}  // namespace android::hardware::bluetooth
