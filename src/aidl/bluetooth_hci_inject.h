// HCI command injection beside the stack.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothExt.h>

#include <cstdint>
#include <vector>

#include "aidl/extension_handle.h"

namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation {

// Injection is not offered: what the stack does not know of would upset its own account of the controller.
class BluetoothHciInject : public ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothExt {
 public:
  using HciFlowControl = ::android::hardware::bluetooth::hci::HciFlowControl;

  BluetoothHciInject();
  ~BluetoothHciInject() override;

  // The process's one instance, null where none was made.
  static BluetoothHciInject* GetInstance();

  void OnBluetoothEnabled(HciFlowControl* flow_control);
  void OnBluetoothDisabled();

  ::ndk::ScopedAStatus sendHciCommand(const std::vector<uint8_t>& command) override;

 private:
  ::android::hardware::bluetooth::ExtensionHandle hci_handle_;
};

}  // namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation
