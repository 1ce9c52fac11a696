// The base of an object that implements IBluetoothHci.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>

namespace aidl::android::hardware::bluetooth {

class BnBluetoothHci : public ::bthal::host::Stub<IBluetoothHci> {};

}  // namespace aidl::android::hardware::bluetooth
