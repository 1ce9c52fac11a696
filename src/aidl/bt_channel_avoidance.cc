#define LOG_TAG "bthal.aidl.channel_avoidance"

#include "aidl/bt_channel_avoidance.h"

#include <android-base/logging.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "vnd_snoop_logger.h"

namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation {
namespace {

using ::android::hardware::toString;
using ::android::hardware::bluetooth::VndSnoopLogger;
using ::android::hardware::bluetooth::hci::HciPacketType;
using ::android::hardware::bluetooth::hci::kCommandCompleteEvent;
using ::android::hardware::bluetooth::hci::kCommandCompleteStatusOffset;

// Set AFH Host Channel Classification:
//   3F 0C | 0A | channel map (10)
constexpr uint16_t kSetAfhOpcode = 0x0C3F;
constexpr size_t kCommandSize = 13;
constexpr size_t kMapOffset = 3;
constexpr int32_t kBluetoothOff = -22;

std::atomic<BTChannelAvoidance*> g_instance{nullptr};

// The map as characters up to its first zero byte: how the tools that read this log have always had it.
std::string_view AsText(const std::array<uint8_t, 10>& map) {
  const char* text = reinterpret_cast<const char*>(map.data());
  return {text, strnlen(text, map.size())};
}

}  // namespace

BTChannelAvoidance::BTChannelAvoidance() : HciEventWatcher(LOG_TAG, kCommandCompleteEvent, kSetAfhOpcode) {
  g_instance = this;
}

BTChannelAvoidance::~BTChannelAvoidance() {
  if (const auto flow_control = hci_handle_.Clear()) flow_control->UnregisterEventWatcher(this);
  g_instance = nullptr;
}

BTChannelAvoidance* BTChannelAvoidance::GetInstance() { return g_instance; }

::ndk::ScopedAStatus BTChannelAvoidance::setBluetoothChannelStatus(const std::array<uint8_t, 10>& channel_map) {
  const auto flow_control = hci_handle_.Lock();
  if (flow_control == nullptr) {
    LOG(WARNING) << __func__ << ": Unable to set channel map <" << AsText(channel_map) << ">";
    return ::ndk::ScopedAStatus::fromServiceSpecificError(kBluetoothOff);
  }
  LOG(INFO) << __func__ << ": Channel Map <" << AsText(channel_map) << ">";

  HciPacket command;
  command.resize(kCommandSize);
  command[0] = kSetAfhOpcode & 0xFF;
  command[1] = kSetAfhOpcode >> 8;
  command[2] = channel_map.size();
  std::copy(channel_map.begin(), channel_map.end(), command.begin() + kMapOffset);

  ++pending_;
  VndSnoopLogger::Get().Capture(command, VndSnoopLogger::kToController, VndSnoopLogger::kCommand, false);
  flow_control->Send(static_cast<uint8_t>(HciPacketType::kCommand), command.data(), command.size());
  return ::ndk::ScopedAStatus::ok();
}

void BTChannelAvoidance::OnBluetoothEnabled(HciFlowControl* flow_control) {
  LOG(DEBUG) << __func__;
  hci_handle_.Set(flow_control);
  if (flow_control != nullptr) flow_control->RegisterEventWatcher(this);
}

void BTChannelAvoidance::OnBluetoothDisabled() {
  LOG(DEBUG) << __func__;
  if (const auto flow_control = hci_handle_.Clear()) flow_control->UnregisterEventWatcher(this);
}

bool BTChannelAvoidance::OnEventReceive(const HciPacket& event) {
  const bool success = event.size() > kCommandCompleteStatusOffset && event[kCommandCompleteStatusOffset] == 0;
  if (success) {
    LOG(INFO) << __func__ << ": (" << pending_ << ") Recv Success VSE <" << toString(event) << ">";
  } else {
    LOG(WARNING) << __func__ << ": (" << pending_ << ") Recv Failure VSE <" << toString(event) << ">";
  }
  if (pending_ == 0) return false;
  --pending_;
  return true;
}

}  // namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation
