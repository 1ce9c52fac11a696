// The base of an object that implements IBluetoothHciCallbacks.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHciCallbacks.h>

namespace aidl::android::hardware::bluetooth {

class BnBluetoothHciCallbacks : public ::bthal::host::Stub<IBluetoothHciCallbacks> {};

}  // namespace aidl::android::hardware::bluetooth
