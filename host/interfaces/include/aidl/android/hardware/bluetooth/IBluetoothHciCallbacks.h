// What the stack receives. Packets carry no H4 type byte.
#pragma once

#include <aidl/android/hardware/bluetooth/Status.h>
#include <host/aidl_interface.h>

#include <memory>
#include <vector>

namespace aidl::android::hardware::bluetooth {

class IBluetoothHciCallbacks : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "android.hardware.bluetooth.IBluetoothHciCallbacks";
  static std::shared_ptr<IBluetoothHciCallbacks> fromBinder(const ::ndk::SpAIBinder& binder);

  virtual ::ndk::ScopedAStatus aclDataReceived(const std::vector<uint8_t>& in_data) = 0;
  virtual ::ndk::ScopedAStatus hciEventReceived(const std::vector<uint8_t>& in_event) = 0;
  virtual ::ndk::ScopedAStatus initializationComplete(Status in_status) = 0;
  virtual ::ndk::ScopedAStatus isoDataReceived(const std::vector<uint8_t>& in_data) = 0;
  virtual ::ndk::ScopedAStatus scoDataReceived(const std::vector<uint8_t>& in_data) = 0;

  using Methods =
      ::bthal::host::Methods<&IBluetoothHciCallbacks::aclDataReceived, &IBluetoothHciCallbacks::hciEventReceived,
                             &IBluetoothHciCallbacks::initializationComplete, &IBluetoothHciCallbacks::isoDataReceived,
                             &IBluetoothHciCallbacks::scoDataReceived>;
};

}  // namespace aidl::android::hardware::bluetooth
