// Lets the controller be found while the device is off.
#pragma once

#include <host/aidl_interface.h>

#include <memory>
#include <vector>

namespace aidl::vendor::tovani::bluetooth_ext {

class IBluetoothFinder : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "vendor.tovani.bluetooth_ext.IBluetoothFinder";
  static std::shared_ptr<IBluetoothFinder> fromBinder(const ::ndk::SpAIBinder& binder);

  virtual ::ndk::ScopedAStatus sendPrecomputedKeys(const std::vector<uint8_t>& in_keys) = 0;
  virtual ::ndk::ScopedAStatus setPoweredOffMode(bool in_enable) = 0;

  using Methods = ::bthal::host::Methods<&IBluetoothFinder::sendPrecomputedKeys, &IBluetoothFinder::setPoweredOffMode>;
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
