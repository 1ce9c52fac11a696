// Transmit-power caps.
#pragma once

#include <host/aidl_interface.h>

#include <memory>

namespace aidl::vendor::tovani::bluetooth_ext {

class IBluetoothSar : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "vendor.tovani.bluetooth_ext.IBluetoothSar";
  static std::shared_ptr<IBluetoothSar> fromBinder(const ::ndk::SpAIBinder& binder);

  virtual ::ndk::ScopedAStatus setBluetoothTxPowerCap(int8_t in_cap) = 0;

  using Methods = ::bthal::host::Methods<&IBluetoothSar::setBluetoothTxPowerCap>;
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
