// The proxy of an IBluetoothCcc in another process.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothCcc.h>

#include <array>
#include <memory>
#include <vector>

namespace aidl::vendor::tovani::bluetooth_ext {

class BpBluetoothCcc : public ::bthal::host::Proxy<IBluetoothCcc> {
 public:
  using Proxy::Proxy;

  ::ndk::ScopedAStatus registerForLmpEvents(const std::array<uint8_t, 6>& in_address,
                                            const std::vector<uint8_t>& in_lmpEventIds) override {
    return Call<&IBluetoothCcc::registerForLmpEvents>(in_address, in_lmpEventIds);
  }
  ::ndk::ScopedAStatus unregisterLmpEvents(const std::array<uint8_t, 6>& in_address) override {
    return Call<&IBluetoothCcc::unregisterLmpEvents>(in_address);
  }
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
