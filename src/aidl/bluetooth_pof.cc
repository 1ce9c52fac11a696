#define LOG_TAG "bthal.aidl.pof"

#include "aidl/bluetooth_pof.h"

#include <android-base/logging.h>

#include <algorithm>

#include "hci/hci_command.h"
#include "hci_flow_control/vendor_command.h"
#include "os/kill_self.h"
#include "vnd_snoop_logger.h"

namespace vendor::tovani::bluetooth_ext::finder::aidl::implementation {
namespace {

using ::android::hardware::toString;
using ::android::hardware::bluetooth::VndSnoopLogger;
using ::android::hardware::bluetooth::hci::BuildCommand;
using ::android::hardware::bluetooth::hci::kCommandCompleteParametersOffset;
using ::android::hardware::bluetooth::hci::kCommandCompleteStatusOffset;
using ::android::hardware::bluetooth::hci::SendVendorCommand;

// Send-keys command:
//   62 FD | 3 + 20 * count | 01 | index of the first key | count | count * 20 bytes of keys
// Start command:
//   62 FD | 09 | 02 | 40 06 0A 00 04 | argument | 00 50
// Both are answered by a Command Complete whose first return parameter echoes the form byte (01 or 02).
constexpr uint16_t kPofOpcode = 0xFD62;
constexpr uint8_t kSendKeysForm = 0x01;
constexpr uint8_t kStartForm = 0x02;
constexpr uint8_t kStartArgument = 0x00;
constexpr size_t kKeySize = 20;
constexpr size_t kMaxKeysPerCommand = 12;
constexpr size_t kIndexedKeys = 256;

// The store only ever grows; this keeps a client gone wild from eating the service's memory. It is some two hundred
// times what the one-byte key index can tell apart.
constexpr size_t kMaxKeyStoreSize = 1 << 20;

}  // namespace

BluetoothFinder::BluetoothFinder() : WatchingExtension(kPofOpcode) {}

::ndk::ScopedAStatus BluetoothFinder::setPoweredOffMode(bool enable) {
  LOG(INFO) << __func__ << ": " << enable;
  powered_off_mode_enabled_ = enable;
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BluetoothFinder::sendPrecomputedKeys(const std::vector<uint8_t>& keys) {
  LOG(INFO) << __func__ << ": " << pending_;
  const std::lock_guard lock(keys_mutex_);
  if (keys.size() > kMaxKeyStoreSize - key_store_.size()) {
    LOG(ERROR) << __func__ << ": key store is full, " << keys.size() << " bytes refused";
    return ::ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, "Key store is full!");
  }
  key_store_.insert(key_store_.end(), keys.begin(), keys.end());
  if (const size_t count = key_store_.size() / kKeySize; count > kIndexedKeys) {
    LOG(WARNING) << __func__ << ": " << count << " keys, but the controller's index tells only " << kIndexedKeys
                 << " apart";
  }
  return ::ndk::ScopedAStatus::ok();
}

bool BluetoothFinder::enterPoweredOffMode() {
  LOG(INFO) << __func__;
  if (entered_.exchange(true)) {
    LOG(WARNING) << ": Already entered powered off mode";
    return false;
  }
  return sendKeys() && startPoweredOffMode();
}

bool BluetoothFinder::sendKeys() {
  const auto flow_control = hci_handle_.Lock();
  if (flow_control == nullptr) {
    LOG(ERROR) << "Unable to send precomputed keys: hci_handle is nullptr";
    return false;
  }
  const std::lock_guard lock(keys_mutex_);
  if (key_store_.empty()) {
    LOG(ERROR) << "Unable to send precomputed keys: No key";
    return false;
  }
  for (size_t offset = 0; offset < key_store_.size(); offset += kMaxKeysPerCommand * kKeySize) {
    SendCommand(__func__, *flow_control, KeyParameters(offset));
  }
  return true;
}

std::vector<uint8_t> BluetoothFinder::KeyParameters(size_t offset) const {
  const size_t count = std::min((key_store_.size() - offset) / kKeySize, kMaxKeysPerCommand);
  std::vector<uint8_t> parameters = {kSendKeysForm, static_cast<uint8_t>(offset / kKeySize),
                                     static_cast<uint8_t>(count)};
  const auto first = key_store_.begin() + static_cast<ptrdiff_t>(offset);
  parameters.insert(parameters.end(), first, first + static_cast<ptrdiff_t>(count * kKeySize));
  return parameters;
}

bool BluetoothFinder::startPoweredOffMode() {
  const auto flow_control = hci_handle_.Lock();
  if (flow_control == nullptr) {
    LOG(ERROR) << "Unable to start power off mode: hci_handle is nullptr";
    return false;
  }
  return SendCommand(__func__, *flow_control, {kStartForm, 0x40, 0x06, 0x0A, 0x00, 0x04, kStartArgument, 0x00, 0x50});
}

// False when it could not be sent.
bool BluetoothFinder::SendCommand(const char* operation, HciFlowControl& flow_control,
                                  const std::vector<uint8_t>& parameters) {
  const HciPacket command = BuildCommand(kPofOpcode, parameters);
  ExpectAnswer();
  if (parameters[0] == kStartForm) start_sent_ = true;
  LOG(INFO) << operation << ": " << toString(command);
  if (SendVendorCommand(flow_control, command) != 0) return true;
  CountOffAnswer();
  return false;
}

bool BluetoothFinder::OnEventReceive(const HciPacket& event) {
  const bool success = event.size() > kCommandCompleteStatusOffset && event[kCommandCompleteStatusOffset] == 0;
  if (!ClaimAnswer(event, success)) return false;
  // Answers come in the order of the commands. One too short to echo its form is the start's when it is the last.
  const bool answers_start = event.size() > kCommandCompleteParametersOffset
                                 ? event[kCommandCompleteParametersOffset] == kStartForm
                                 : IsStartAnswered();
  if (answers_start) FinishPoweredOffMode(event, success);
  return true;
}

void BluetoothFinder::OnRefused(const HciPacket& event) {
  if (IsStartAnswered()) FinishPoweredOffMode(event, false);
}

void BluetoothFinder::FinishPoweredOffMode(const HciPacket& event, bool success) {
  LOG(INFO) << "OnEventReceive: Entered powered off mode" << (success ? "" : " failed");
  VndSnoopLogger::Get().Capture(event, VndSnoopLogger::kFromController, VndSnoopLogger::kEvent);
  VndSnoopLogger::Get().Stop();
  // Success or not, the controller is left as it reported: nothing may touch its power any more.
  ::android::hardware::bluetooth::os::KillSelf();
}

}  // namespace vendor::tovani::bluetooth_ext::finder::aidl::implementation
