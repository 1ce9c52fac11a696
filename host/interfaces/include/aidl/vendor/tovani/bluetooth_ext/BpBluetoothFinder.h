// The proxy of an IBluetoothFinder in another process.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>

#include <memory>
#include <vector>

namespace aidl::vendor::tovani::bluetooth_ext {

class BpBluetoothFinder : public ::bthal::host::Proxy<IBluetoothFinder> {
 public:
  using Proxy::Proxy;

  ::ndk::ScopedAStatus sendPrecomputedKeys(const std::vector<uint8_t>& in_keys) override {
    return Call<&IBluetoothFinder::sendPrecomputedKeys>(in_keys);
  }
  ::ndk::ScopedAStatus setPoweredOffMode(bool in_enable) override {
    return Call<&IBluetoothFinder::setPoweredOffMode>(in_enable);
  }
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
