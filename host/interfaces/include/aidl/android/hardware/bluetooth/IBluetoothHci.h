// The platform's HCI: one client at a time sends to the controller, and receives through its callbacks.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHciCallbacks.h>
#include <host/aidl_interface.h>

#include <memory>
#include <vector>

namespace aidl::android::hardware::bluetooth {

class IBluetoothHci : public ::ndk::ICInterface {
 public:
  inline static const char* descriptor = "android.hardware.bluetooth.IBluetoothHci";
  static std::shared_ptr<IBluetoothHci> fromBinder(const ::ndk::SpAIBinder& binder);

  virtual ::ndk::ScopedAStatus close() = 0;
  virtual ::ndk::ScopedAStatus initialize(const std::shared_ptr<IBluetoothHciCallbacks>& in_callbacks) = 0;
  virtual ::ndk::ScopedAStatus sendAclData(const std::vector<uint8_t>& in_data) = 0;
  virtual ::ndk::ScopedAStatus sendHciCommand(const std::vector<uint8_t>& in_command) = 0;
  virtual ::ndk::ScopedAStatus sendIsoData(const std::vector<uint8_t>& in_data) = 0;
  virtual ::ndk::ScopedAStatus sendScoData(const std::vector<uint8_t>& in_data) = 0;

  using Methods =
      ::bthal::host::Methods<&IBluetoothHci::close, &IBluetoothHci::initialize, &IBluetoothHci::sendAclData,
                             &IBluetoothHci::sendHciCommand, &IBluetoothHci::sendIsoData, &IBluetoothHci::sendScoData>;
};

}  // namespace aidl::android::hardware::bluetooth
