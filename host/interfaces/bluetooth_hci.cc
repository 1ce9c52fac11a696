// The way from a binder object to each interface of the package.
#include <aidl/android/hardware/bluetooth/BpBluetoothHci.h>
#include <aidl/android/hardware/bluetooth/BpBluetoothHciCallbacks.h>

namespace aidl::android::hardware::bluetooth {

std::shared_ptr<IBluetoothHci> IBluetoothHci::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBluetoothHci, BpBluetoothHci>(binder);
}

std::shared_ptr<IBluetoothHciCallbacks> IBluetoothHciCallbacks::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBluetoothHciCallbacks, BpBluetoothHciCallbacks>(binder);
}

}  // namespace aidl::android::hardware::bluetooth
