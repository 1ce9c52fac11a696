// Transmit-power caps.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothSar.h>

#include <cstdint>

#include "aidl/extension_handle.h"

namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation {

// The controller offers no command for caps: every cap is refused.
class BluetoothSar : public ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothSar {
 public:
  using HciFlowControl = ::android::hardware::bluetooth::hci::HciFlowControl;

  BluetoothSar();
  ~BluetoothSar() override;

  // The process's one instance, null where none was made.
  static BluetoothSar* GetInstance();

  void OnBluetoothEnabled(HciFlowControl* flow_control);
  void OnBluetoothDisabled();

  ::ndk::ScopedAStatus setBluetoothTxPowerCap(int8_t cap) override;

 private:
  ::android::hardware::bluetooth::ExtensionHandle hci_handle_;
};

}  // namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation
