// The base of an object that implements IBluetoothCcc.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothCcc.h>

namespace aidl::vendor::tovani::bluetooth_ext {

class BnBluetoothCcc : public ::bthal::host::Stub<IBluetoothCcc> {};

}  // namespace aidl::vendor::tovani::bluetooth_ext
