#define LOG_TAG "bthal.qnlproto"

#include "btqnl_protocol/btqnl_protocol.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <hardware_legacy/power.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "btqnl_protocol/commands.h"
#include "debug_central/debug_central.h"
#include "hci/hci_command.h"
#include "shim/low_power.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::StringPrintf;

// How long the controller gets to send its debug information.
constexpr std::chrono::milliseconds kDebugInformationPause(500);

}  // namespace

BtQnlProtocol& BtQnlProtocol::GetInstacne() {
  static auto& instance = *new BtQnlProtocol;
  return instance;
}

bool BtQnlProtocol::Initialize(hci::HciFlowControl* flow_control) {
  DebugCentral::Get().UpdateRecord(AnchorType::kProtocolInitialize, "Initialize");
  {
    const std::lock_guard lock(mutex_);
    flow_control_ = hci::MakeHandle(flow_control);
  }

  if (hci::shim::IsUserialAutoInit()) {
    const int type = static_cast<int>(hci::shim::GetUserialType());
    LOG(INFO) << "Initialize: Do no-op for USERIAL ( " << type << " )";
    DebugCentral::Get().UpdateRecord(
        AnchorType::kUserialAutoInit,
        StringPrintf("%s: HCI_UART driver (%d) handles BTQNL protocol", "Initialize", type));
    return true;
  }

  // Keeps the system from suspending during bring-up. A failed bring-up keeps it: the next one that succeeds releases
  // it.
  acquire_wake_lock(PARTIAL_WAKE_LOCK, hci::shim::kBthalWakeLock);

  if (!first_hci_reset()) {
    return fail_bring_up(BqrErrorCode::kHostResetBeforeFw, "HCI Reset error before downloading firmware");
  }
  if (!baudrate_change(hci::shim::RequiredBaudRate(), false)) {
    return fail_bring_up(BqrErrorCode::kHostChangeBaudrate,
                         "Unable to change to 4M baud rate before downloading firmware");
  }
  if (!firmware_download()) {
    return fail_bring_up(BqrErrorCode::kHostDownloadFw, "Unable to download firmware patchram");
  }
  if (!btqnl_reset()) {
    return fail_bring_up(BqrErrorCode::kHostResetAfterFw, "HCI Reset error after firmware downloaded");
  }
  if (!baudrate_change(hci::shim::RequiredBaudRate(), false)) {
    return fail_bring_up(BqrErrorCode::kHostChangeBaudrate,
                         "Unable to change to 4M baud rate after firmware downloaded");
  }
  if (!read_local_name()) {
    LOG(WARNING) << "Initialize: Unable to get local name information";
    DebugCentral::Get().UpdateRecord(AnchorType::kLocalNameMissing,
                                     StringPrintf("%s: Unable to get local name information", "Initialize"));
  }
  lpm_setup();

  // Released by its name, although setting the sleep mode has just woken the link, which holds the same lock: until the
  // link first falls asleep the line may be up without it. A wake lock has no count, so nothing is left held.
  release_wake_lock(hci::shim::kBthalWakeLock);
  return true;
}

bool BtQnlProtocol::fail_bring_up(BqrErrorCode code, const char* reason) {
  Shutdown();
  DebugCentral::Get().ReportBqrError(code, reason);
  return false;
}

void BtQnlProtocol::Shutdown() {
  LOG(INFO) << "Shutdown";
  DebugCentral::Get().UpdateRecord(AnchorType::kProtocolShutdown, "Shutdown");
  {
    const std::lock_guard lock(mutex_);
    flow_control_.reset();
  }
  hci::shim::LowPowerLink::Get().lpm_teardown();
}

bool BtQnlProtocol::AcceleratedReset() {
  LOG(INFO) << "AcceleratedReset";
  if (btqnl_reset()) return true;
  LOG(ERROR) << "AcceleratedReset: hci_reset fail, try to get fw debug dump";
  if (hci::shim::IsUserialAutoInit()) {
    LOG(ERROR) << "AcceleratedReset: a controller without the vendor's commands cannot be kept up: set AccelBtDisable";
  }
  send_debug_info_cmd();
  std::this_thread::sleep_for(kDebugInformationPause);
  return false;
}

void BtQnlProtocol::send_debug_info_cmd() {
  LOG(INFO) << "send_debug_info_cmd";
  btqnl_send_command_no_wait(flow_control().get(), hci::kOpcodeDebugInformation, 0, nullptr);
  LOG(INFO) << "send_debug_info_cmd: Done (status:0)";
}

bool BtQnlProtocol::read_local_name() {
  const DebugAnchor anchor(AnchorType::kReadLocalName, "read_local_name");
  LOG(INFO) << "btqnl_read_local_name";
  const uint8_t status = send_and_wait(kOpcodeReadLocalName);
  if (status != 0) {
    LOG(ERROR) << "btqnl_read_local_name: Read local name failed: " << int{status};
    return false;
  }
  // Command Complete of Read Local Name: header and status (6) | name, padded with zeros to 248
  const hci::HciPacket event = btqnl_last_command_complete(kOpcodeReadLocalName);
  const auto* const end = event.data() + event.size();
  const auto* const name = event.data() + std::min(event.size(), hci::kCommandCompleteParametersOffset);
  const std::string text(name, std::find(name, end, 0));
  LOG(INFO) << "btqnl_read_local_name: " << text;
  const std::lock_guard lock(mutex_);
  local_name_ = text;
  return true;
}

std::string BtQnlProtocol::local_name() const {
  const std::lock_guard lock(mutex_);
  return local_name_;
}

std::shared_ptr<hci::HciFlowControl> BtQnlProtocol::flow_control() const {
  const std::lock_guard lock(mutex_);
  return flow_control_.lock();
}

uint8_t BtQnlProtocol::send_and_wait(uint16_t opcode, std::initializer_list<uint8_t> params) {
  return btqnl_send_command_wait_complete(flow_control().get(), opcode, static_cast<uint8_t>(params.size()),
                                          params.begin());
}

}  // namespace android::hardware::bluetooth
