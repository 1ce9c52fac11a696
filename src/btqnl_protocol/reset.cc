#define LOG_TAG "bthal.qnlproto"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <chrono>
#include <thread>

#include "btqnl_protocol/btqnl_protocol.h"
#include "btqnl_protocol/commands.h"
#include "debug_central/debug_central.h"
#include "hci_flow_control/hci_channel.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::StringPrintf;

constexpr std::chrono::milliseconds kPauseBeforePowerCycle(100);

void PowerCycle() {
  std::this_thread::sleep_for(kPauseBeforePowerCycle);
  LOG(ERROR) << "first_hci_reset: fail, Deinitialize & Initialize Controller for recovery";
  hci::channel::ReopenController();
}

}  // namespace

bool BtQnlProtocol::first_hci_reset() {
  LOG(INFO) << "first_hci_reset";
  first_hci_reset_flag_ = true;
  int power_cycles = 0;
  bool done = btqnl_reset();
  if (!done) {
    PowerCycle();
    ++power_cycles;
    // Until here a hardware error is what the power cycle is for, and its crash dump a silent one.
    first_hci_reset_flag_ = false;
    done = btqnl_reset();
  }
  if (!done) {
    // Leaves the controller freshly powered for whatever the caller does next.
    PowerCycle();
    ++power_cycles;
  }
  first_hci_reset_flag_ = false;
  LOG(INFO) << StringPrintf("first_hci_reset: return ret (%d), count:%d", done, power_cycles);
  return done;
}

bool BtQnlProtocol::btqnl_reset() {
  const DebugAnchor anchor(AnchorType::kBtqnlReset, "btqnl_reset");
  if (!hci::shim::IsUserialReady()) {
    LOG(ERROR) << "btqnl_reset: Userial port is not ready";
    return false;
  }
  if (send_hci_reset() != 0) {
    LOG(ERROR) << "btqnl_reset: hci_reset fail";
    return false;
  }
  chip_id_ = read_btqnl_chip_id();
  return chip_id_ != 0;
}

uint8_t BtQnlProtocol::send_hci_reset() {
  LOG(INFO) << "send_hci_reset";
  const uint8_t status = send_and_wait(kOpcodeReset);
  LOG(INFO) << "send_hci_reset: Done (status:" << int{status} << ")";
  return status;
}

uint8_t BtQnlProtocol::read_btqnl_chip_id() {
  LOG(DEBUG) << "read_btqnl_chip_id";
  const uint8_t status = send_and_wait(kOpcodeReadVerboseConfig);
  if (status != 0) {
    LOG(ERROR) << "read_btqnl_chip_id: Read verbose config failed: " << int{status};
    return 0;
  }
  // Command Complete of Read Verbose Config: header and status (6) | chip id (1) | version and build
  const hci::HciPacket event = btqnl_last_command_complete(kOpcodeReadVerboseConfig);
  const uint8_t chip_id =
      event.size() > hci::kCommandCompleteParametersOffset ? event[hci::kCommandCompleteParametersOffset] : 0;
  LOG(INFO) << "read_btqnl_chip_id: " << int{chip_id};
  DebugCentral::Get().UpdateRecord(AnchorType::kChipId, StringPrintf("%s, chip_id: %u", "read_btqnl_chip_id", chip_id));
  return chip_id;
}

}  // namespace android::hardware::bluetooth
