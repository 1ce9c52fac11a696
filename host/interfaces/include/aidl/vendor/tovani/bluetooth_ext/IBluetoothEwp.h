// Published for the platform to find; it has no operation yet.
#pragma once

#include <host/aidl_interface.h>

#include <memory>

namespace aidl::vendor::tovani::bluetooth_ext {

class IBluetoothEwp : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "vendor.tovani.bluetooth_ext.IBluetoothEwp";
  static std::shared_ptr<IBluetoothEwp> fromBinder(const ::ndk::SpAIBinder& binder);

  using Methods = ::bthal::host::Methods<>;
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
