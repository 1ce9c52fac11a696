// Tells the controller which channels to avoid.
#pragma once

#include <host/aidl_interface.h>

#include <array>
#include <memory>

namespace aidl::vendor::tovani::bluetooth_ext {

class IBTChannelAvoidance : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "vendor.tovani.bluetooth_ext.IBTChannelAvoidance";
  static std::shared_ptr<IBTChannelAvoidance> fromBinder(const ::ndk::SpAIBinder& binder);

  virtual ::ndk::ScopedAStatus setBluetoothChannelStatus(const std::array<uint8_t, 10>& in_channelMap) = 0;

  using Methods = ::bthal::host::Methods<&IBTChannelAvoidance::setBluetoothChannelStatus>;
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
