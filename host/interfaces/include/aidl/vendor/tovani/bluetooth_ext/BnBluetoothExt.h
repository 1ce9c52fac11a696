// The base of an object that implements IBluetoothExt.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothExt.h>

namespace aidl::vendor::tovani::bluetooth_ext {

class BnBluetoothExt : public ::bthal::host::Stub<IBluetoothExt> {};

}  // namespace aidl::vendor::tovani::bluetooth_ext
