// Digital keys: LMP event registration and time sync.
#pragma once

#include <host/aidl_interface.h>

#include <array>
#include <memory>
#include <vector>

namespace aidl::vendor::tovani::bluetooth_ext {

class IBluetoothCcc : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "vendor.tovani.bluetooth_ext.IBluetoothCcc";
  static std::shared_ptr<IBluetoothCcc> fromBinder(const ::ndk::SpAIBinder& binder);

  virtual ::ndk::ScopedAStatus registerForLmpEvents(const std::array<uint8_t, 6>& in_address,
                                                    const std::vector<uint8_t>& in_lmpEventIds) = 0;
  virtual ::ndk::ScopedAStatus unregisterLmpEvents(const std::array<uint8_t, 6>& in_address) = 0;

  using Methods = ::bthal::host::Methods<&IBluetoothCcc::registerForLmpEvents, &IBluetoothCcc::unregisterLmpEvents>;
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
