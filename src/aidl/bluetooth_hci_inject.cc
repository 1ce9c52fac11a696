#include "aidl/bluetooth_hci_inject.h"

namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation {

::ndk::ScopedAStatus BluetoothHciInject::sendHciCommand(const std::vector<uint8_t>& /*command*/) {
  return Refuse(__func__, "HCI command injection is not offered");
}

}  // namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation
