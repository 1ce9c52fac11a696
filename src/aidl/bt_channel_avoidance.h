// Lets a platform client tell the controller which channels to avoid.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBTChannelAvoidance.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "aidl/extension_handle.h"
#include "hci/hci_event_watcher.h"

namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation {

class BTChannelAvoidance : public ::aidl::vendor::tovani::bluetooth_ext::BnBTChannelAvoidance,
                           public ::android::hardware::bluetooth::hci::HciEventWatcher {
 public:
  using HciFlowControl = ::android::hardware::bluetooth::hci::HciFlowControl;
  using HciPacket = ::android::hardware::bluetooth::hci::HciPacket;

  BTChannelAvoidance();
  ~BTChannelAvoidance() override;

  // The process's one instance, null where none was made.
  static BTChannelAvoidance* GetInstance();

  // Sends the map as it is and returns without waiting for the answer; service-specific error -22 while Bluetooth is
  // off.
  ::ndk::ScopedAStatus setBluetoothChannelStatus(const std::array<uint8_t, 10>& channel_map) override;

  void OnBluetoothEnabled(HciFlowControl* flow_control);
  void OnBluetoothDisabled();

  // Claims as many answers as this object sent commands.
  bool OnEventReceive(const HciPacket& event) override;

 private:
  std::atomic<uint32_t> pending_{0};  // commands sent and not yet answered
  ::android::hardware::bluetooth::ExtensionHandle hci_handle_;
};

}  // namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation
