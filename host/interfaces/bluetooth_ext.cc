// The way from a binder object to each interface of the package.
#include <aidl/vendor/tovani/bluetooth_ext/BpBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothCcc.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothEwp.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothExt.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothFinder.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothSar.h>

namespace aidl::vendor::tovani::bluetooth_ext {

std::shared_ptr<IBTChannelAvoidance> IBTChannelAvoidance::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBTChannelAvoidance, BpBTChannelAvoidance>(binder);
}

std::shared_ptr<IBluetoothCcc> IBluetoothCcc::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBluetoothCcc, BpBluetoothCcc>(binder);
}

std::shared_ptr<IBluetoothEwp> IBluetoothEwp::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBluetoothEwp, BpBluetoothEwp>(binder);
}

std::shared_ptr<IBluetoothExt> IBluetoothExt::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBluetoothExt, BpBluetoothExt>(binder);
}

std::shared_ptr<IBluetoothFinder> IBluetoothFinder::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBluetoothFinder, BpBluetoothFinder>(binder);
}

std::shared_ptr<IBluetoothSar> IBluetoothSar::fromBinder(const ::ndk::SpAIBinder& binder) {
  return ::bthal::host::FromBinder<IBluetoothSar, BpBluetoothSar>(binder);
}

}  // namespace aidl::vendor::tovani::bluetooth_ext
