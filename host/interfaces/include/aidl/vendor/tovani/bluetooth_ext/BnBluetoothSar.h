// The base of an object that implements IBluetoothSar.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothSar.h>

namespace aidl::vendor::tovani::bluetooth_ext {

class BnBluetoothSar : public ::bthal::host::Stub<IBluetoothSar> {};

}  // namespace aidl::vendor::tovani::bluetooth_ext
