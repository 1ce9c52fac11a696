#define LOG_TAG "bthal.bdaddress"

#include "btqnl_protocol/bluetooth_address.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <atomic>
#include <chrono>
#include <future>

#include "conf/provisioned_address.h"
#include "debug_central/debug_central.h"
#include "hci/hci_command.h"
#include "hci_flow_control/vendor_command.h"

namespace android::hardware::bluetooth::hci {
namespace {

using ::android::base::StringPrintf;

// Write BD_ADDR:
//   0xFC01 (2) | 6 | address, least significant byte first (6)
constexpr uint16_t kOpcodeWriteBdAddr = 0xFC01;
constexpr std::chrono::seconds kAnswerTimeout(2);

// The controller's verdict on our one command: the first answer counts, later ones are not ours. Touched under the
// flow-control lock, or by the provisioning thread while the watchers are out of flow control's reach.
class Verdict {
 public:
  std::future<bool> future() { return promise_.get_future(); }
  void ExpectAnswer() { consume_next_ = true; }

  // Returns whether this is the answer to our command, to be kept from the stack.
  bool Answer(bool accepted) {
    const bool ours = consume_next_.exchange(false);
    if (ours) promise_.set_value(accepted);
    return ours;
  }

 private:
  std::promise<bool> promise_;
  // Set by the provisioning thread just before it sends; an earlier answer belongs to somebody else's command.
  std::atomic<bool> consume_next_{false};
};

// Sees the Command Complete of Write BD_ADDR, or (`event_code`) the Command Status with which a controller that does
// not know the command refuses it.
class BluetoothAddress : public HciEventWatcher {
 public:
  BluetoothAddress(uint8_t event_code, size_t status_offset, Verdict* verdict, HciFlowControl* flow_control)
      : HciEventWatcher("bthal.bdaddress", event_code, kOpcodeWriteBdAddr),
        status_offset_(status_offset),
        verdict_(verdict),
        flow_control_(flow_control) {
    flow_control_->RegisterEventWatcher(this);
  }
  BluetoothAddress(const BluetoothAddress&) = delete;
  BluetoothAddress& operator=(const BluetoothAddress&) = delete;
  ~BluetoothAddress() override { flow_control_->UnregisterEventWatcher(this); }

  bool OnEventReceive(const HciPacket& event) override {
    // Without a status byte nothing has been accepted. Neither has it by a Command Status, whatever its status: this
    // command is completed, never just begun.
    const bool success = event.size() > status_offset_ && event[status_offset_] == 0;
    if (success) {
      LOG(INFO) << "OnEventReceive: Recv Success VSE <" << toString(event) << ">";
    } else {
      LOG(WARNING) << "OnEventReceive: Recv Failure VSE <" << toString(event) << ">";
    }
    return verdict_->Answer(success && event_code() == kCommandCompleteEvent);
  }

  void OnHalt() override { verdict_->Answer(false); }

 private:
  size_t status_offset_;
  Verdict* verdict_;
  HciFlowControl* flow_control_;
};

conf::AddressBytes ReadProvisionedAddress() {
  conf::AddressBytes bytes{};
  if (!conf::ParseBluetoothAddress(conf::ReadAddressText().text, &bytes)) {
    // The zero address is written all the same: a controller without an address of its own stays recognisable as such.
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostBdaddrFault, "Can't fetch the provisioning BDA");
  }
  LOG(INFO) << "Provision"
            << StringPrintf(": BDADDR <%02x:%02x:%02x:%02x:%02x:%02x>", bytes[0], bytes[1], bytes[2], bytes[3],
                            bytes[4], bytes[5]);
  return bytes;
}

}  // namespace

bool ApplyProvisionBDAddress(HciFlowControl* flow_control) {
  if (flow_control == nullptr) {
    LOG(ERROR) << "Apply: no transport to the controller, the address is not provisioned";
    return false;
  }
  Verdict verdict;
  auto accepted = verdict.future();
  const BluetoothAddress completion(kCommandCompleteEvent, kCommandCompleteStatusOffset, &verdict, flow_control);
  const BluetoothAddress refusal(kCommandStatusEvent, kCommandStatusStatusOffset, &verdict, flow_control);

  const HciPacket command = BuildCommand(kOpcodeWriteBdAddr, ReadProvisionedAddress());
  verdict.ExpectAnswer();
  LOG(DEBUG) << "Apply: Send VSC <" << toString(command) << ">";
  // What never went out is never answered: a halted flow control and a dead port are not waited for.
  if (SendVendorCommand(*flow_control, command) == 0) return false;
  if (accepted.wait_for(kAnswerTimeout) != std::future_status::ready) {
    LOG(ERROR) << "Apply: the controller did not answer to its address within 2 s";
    return false;
  }
  return accepted.get();
}

}  // namespace android::hardware::bluetooth::hci
