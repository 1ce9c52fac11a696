// The proxy of an IBluetoothSar in another process.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothSar.h>

#include <memory>

namespace aidl::vendor::tovani::bluetooth_ext {

class BpBluetoothSar : public ::bthal::host::Proxy<IBluetoothSar> {
 public:
  using Proxy::Proxy;

  ::ndk::ScopedAStatus setBluetoothTxPowerCap(int8_t in_cap) override {
    return Call<&IBluetoothSar::setBluetoothTxPowerCap>(in_cap);
  }
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
