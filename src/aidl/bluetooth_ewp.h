// Published for the platform to find; it has no operation yet.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothEwp.h>

#include "aidl/extension_handle.h"

namespace vendor::tovani::bluetooth_ext::ewp::aidl::implementation {

// Holds the transport while Bluetooth is on.
class BluetoothEwp : public ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothEwp {
 public:
  using HciFlowControl = ::android::hardware::bluetooth::hci::HciFlowControl;

  BluetoothEwp();
  ~BluetoothEwp() override;

  // The process's one instance, null where none was made.
  static BluetoothEwp* GetInstance();

  void OnBluetoothEnabled(HciFlowControl* flow_control);
  void OnBluetoothDisabled();

 private:
  ::android::hardware::bluetooth::ExtensionHandle hci_handle_;
};

}  // namespace vendor::tovani::bluetooth_ext::ewp::aidl::implementation
