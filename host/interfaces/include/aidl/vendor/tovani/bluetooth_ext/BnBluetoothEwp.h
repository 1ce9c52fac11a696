// The base of an object that implements IBluetoothEwp.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothEwp.h>

namespace aidl::vendor::tovani::bluetooth_ext {

class BnBluetoothEwp : public ::bthal::host::Stub<IBluetoothEwp> {};

}  // namespace aidl::vendor::tovani::bluetooth_ext
