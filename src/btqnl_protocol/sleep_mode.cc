#define LOG_TAG "bthal.qnlproto"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <string.h>

#include "btqnl_protocol/btqnl_protocol.h"
#include "btqnl_protocol/commands.h"
#include "debug_central/debug_central.h"
#include "shim/low_power.h"

namespace android::hardware::bluetooth {

using ::android::base::StringPrintf;

void BtQnlProtocol::lpm_setup() {
  LOG(INFO) << "lpm_setup";
  if (!hci::shim::LowPowerLink::Get().lpm_setup()) return;

  // Set Sleep Mode, one fixed block: UART sleep with both wake lines, thresholds 0x18.
  const uint8_t status = send_and_wait(kOpcodeSetSleepMode, {0x01, 0x18, 0x18, 0x01, 0x01, 0x01, 0x01, 0, 0, 0, 0, 0});
  if (status == 0) {
    LOG(INFO) << "lpm_setup: LPM Enabled";
    return;
  }
  const int error = errno;
  LOG(ERROR) << "lpm_setup: Unable to enable LPM controller:" << strerror(error) << " (" << error << ")";
  DebugCentral::Get().UpdateRecord(
      AnchorType::kLpmSetupFailed,
      StringPrintf("%s: Unable to enable LPM controller: %s (%d)", "lpm_setup", strerror(error), error));
  hci::shim::LowPowerLink::Get().lpm_teardown();
}

}  // namespace android::hardware::bluetooth
