// The proxy of an IBluetoothExt in another process.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothExt.h>

#include <memory>
#include <vector>

namespace aidl::vendor::tovani::bluetooth_ext {

class BpBluetoothExt : public ::bthal::host::Proxy<IBluetoothExt> {
 public:
  using Proxy::Proxy;

  ::ndk::ScopedAStatus sendHciCommand(const std::vector<uint8_t>& in_command) override {
    return Call<&IBluetoothExt::sendHciCommand>(in_command);
  }
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
