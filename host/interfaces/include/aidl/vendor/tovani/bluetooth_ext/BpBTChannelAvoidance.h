// The proxy of an IBTChannelAvoidance in another process.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>

#include <array>
#include <memory>

namespace aidl::vendor::tovani::bluetooth_ext {

class BpBTChannelAvoidance : public ::bthal::host::Proxy<IBTChannelAvoidance> {
 public:
  using Proxy::Proxy;

  ::ndk::ScopedAStatus setBluetoothChannelStatus(const std::array<uint8_t, 10>& in_channelMap) override {
    return Call<&IBTChannelAvoidance::setBluetoothChannelStatus>(in_channelMap);
  }
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
