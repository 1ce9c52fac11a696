#define LOG_TAG "bthal.aidl.channel_avoidance"

#include "aidl/bt_channel_avoidance.h"

#include <android-base/logging.h>
#include <string.h>

#include <string_view>

#include "hci/hci_command.h"
#include "hci_flow_control/vendor_command.h"

namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation {
namespace {

using ::android::hardware::bluetooth::hci::BuildCommand;
using ::android::hardware::bluetooth::hci::kCommandCompleteStatusOffset;
using ::android::hardware::bluetooth::hci::SendVendorCommand;

// Set AFH Host Channel Classification:
//   3F 0C | 0A | channel map (10)
constexpr uint16_t kSetAfhOpcode = 0x0C3F;
constexpr int32_t kBluetoothOff = -22;

// The map as characters up to its first zero byte or its end: the form in which it stands in the log.
std::string_view AsText(const std::array<uint8_t, 10>& map) {
  const char* text = reinterpret_cast<const char*>(map.data());
  return {text, strnlen(text, map.size())};
}

}  // namespace

BTChannelAvoidance::BTChannelAvoidance() : WatchingExtension(kSetAfhOpcode) {}

::ndk::ScopedAStatus BTChannelAvoidance::setBluetoothChannelStatus(const std::array<uint8_t, 10>& channel_map) {
  const auto flow_control = hci_handle_.Lock();
  if (flow_control == nullptr) {
    LOG(WARNING) << __func__ << ": Unable to set channel map <" << AsText(channel_map) << ">";
    return ::ndk::ScopedAStatus::fromServiceSpecificError(kBluetoothOff);
  }
  LOG(INFO) << __func__ << ": Channel Map <" << AsText(channel_map) << ">";

  ExpectAnswer();
  if (SendVendorCommand(*flow_control, BuildCommand(kSetAfhOpcode, channel_map)) == 0) CountOffAnswer();
  return ::ndk::ScopedAStatus::ok();
}

bool BTChannelAvoidance::OnEventReceive(const HciPacket& event) {
  const bool success = event.size() > kCommandCompleteStatusOffset && event[kCommandCompleteStatusOffset] == 0;
  return ClaimAnswer(event, success);
}

}  // namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation
