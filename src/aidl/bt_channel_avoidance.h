// Lets a platform client tell the controller which channels to avoid.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBTChannelAvoidance.h>

#include <array>
#include <cstdint>

#include "aidl/extension.h"

namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation {

class BTChannelAvoidance : public ::android::hardware::bluetooth::WatchingExtension<
                               BTChannelAvoidance, ::aidl::vendor::tovani::bluetooth_ext::BnBTChannelAvoidance> {
 public:
  static constexpr char kLogTag[] = "bthal.aidl.channel_avoidance";

  BTChannelAvoidance();
  ~BTChannelAvoidance() override { StopWatching(); }

  // Sends the map as it is and returns without waiting for the answer; service-specific error -22 while Bluetooth is
  // off.
  ::ndk::ScopedAStatus setBluetoothChannelStatus(const std::array<uint8_t, 10>& channel_map) override;

  // Claims as many answers as this object sent commands.
  bool OnEventReceive(const HciPacket& event) override;
};

}  // namespace vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation
