// The base of an object that implements IBluetoothFinder.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>

namespace aidl::vendor::tovani::bluetooth_ext {

class BnBluetoothFinder : public ::bthal::host::Stub<IBluetoothFinder> {};

}  // namespace aidl::vendor::tovani::bluetooth_ext
