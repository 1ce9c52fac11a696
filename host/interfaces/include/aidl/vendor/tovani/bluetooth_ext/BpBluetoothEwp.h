// The proxy of an IBluetoothEwp in another process.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothEwp.h>

#include <memory>

namespace aidl::vendor::tovani::bluetooth_ext {

class BpBluetoothEwp : public ::bthal::host::Proxy<IBluetoothEwp> {
 public:
  using Proxy::Proxy;
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
