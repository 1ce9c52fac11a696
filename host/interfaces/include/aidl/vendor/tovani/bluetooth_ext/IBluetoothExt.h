// HCI command injection.
#pragma once

#include <host/aidl_interface.h>

#include <memory>
#include <vector>

namespace aidl::vendor::tovani::bluetooth_ext {

class IBluetoothExt : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "vendor.tovani.bluetooth_ext.IBluetoothExt";
  static std::shared_ptr<IBluetoothExt> fromBinder(const ::ndk::SpAIBinder& binder);

  virtual ::ndk::ScopedAStatus sendHciCommand(const std::vector<uint8_t>& in_command) = 0;

  using Methods = ::bthal::host::Methods<&IBluetoothExt::sendHciCommand>;
};

}  // namespace aidl::vendor::tovani::bluetooth_ext
