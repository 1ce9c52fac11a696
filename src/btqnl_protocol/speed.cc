#define LOG_TAG "bthal.qnlproto"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "btqnl_protocol/btqnl_protocol.h"
#include "btqnl_protocol/commands.h"
#include "debug_central/debug_central.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::StringPrintf;

bool IsSupported(UartBaudRate rate) {
  switch (rate) {
    case UartBaudRate::kUartBaudRate115200:
    case UartBaudRate::kUartBaudRate3000000:
    case UartBaudRate::kUartBaudRate4000000:
    case UartBaudRate::kUartBaudRate6000000:
      return true;
  }
  return false;
}

}  // namespace

bool BtQnlProtocol::baudrate_change(UartBaudRate rate, bool host_only) {
  const DebugAnchor anchor(AnchorType::kBaudrateChange, "baudrate_change");
  if (!hci::shim::IsUserialReady()) {
    LOG(ERROR) << "baudrate_change: Userial port is not ready";
    return false;
  }
  if (!hci::shim::SupportBaudRateChange()) {
    LOG(DEBUG) << "baudrate_change: Userial port does not support baudrate change";
    return true;
  }
  const auto bits_per_second = static_cast<uint32_t>(rate);
  if (!IsSupported(rate)) {
    LOG(ERROR) << "baudrate_change: Baud rate (" << bits_per_second << ") unsupported";
    return false;
  }
  LOG(INFO) << "baudrate_change: Sending Update Baud Rate (" << bits_per_second << ") command";

  if (!host_only) {
    // Update Baud Rate: encoded rate (2, unused) | rate in bit/s (4). The controller answers at the old speed and
    // switches afterwards.
    const uint8_t status =
        send_and_wait(kOpcodeUpdateBaudRate,
                      {0x00, 0x00, static_cast<uint8_t>(bits_per_second), static_cast<uint8_t>(bits_per_second >> 8),
                       static_cast<uint8_t>(bits_per_second >> 16), static_cast<uint8_t>(bits_per_second >> 24)});
    if (status != 0) {
      LOG(ERROR) << "baudrate_change: Update Baud Rate command failed: " << int{status};
      DebugCentral::Get().UpdateRecord(
          AnchorType::kBaudrateChangeFailed,
          StringPrintf("%s: Update Baud Rate command failed: 0x%2X", "baudrate_change", status));
      return false;
    }
  }
  hci::shim::BaudrateChange(rate);
  LOG(INFO) << "baudrate_change: Done";
  return true;
}

}  // namespace android::hardware::bluetooth
