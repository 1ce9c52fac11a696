#include "aidl/bluetooth_sar.h"

namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation {

::ndk::ScopedAStatus BluetoothSar::setBluetoothTxPowerCap(int8_t /*cap*/) {
  return Refuse(__func__, "Transmit-power caps are not offered");
}

}  // namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation
