// Digital keys: LMP event registration and time sync.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothCcc.h>

#include <array>
#include <cstdint>
#include <vector>

#include "aidl/extension_handle.h"

namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation {

// The controller offers no command for LMP events: every registration is refused.
class BluetoothCcc : public ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothCcc {
 public:
  using HciFlowControl = ::android::hardware::bluetooth::hci::HciFlowControl;

  BluetoothCcc();
  ~BluetoothCcc() override;

  // The process's one instance, null where none was made.
  static BluetoothCcc* GetInstance();

  void OnBluetoothEnabled(HciFlowControl* flow_control);
  void OnBluetoothDisabled();

  ::ndk::ScopedAStatus registerForLmpEvents(const std::array<uint8_t, 6>& address,
                                            const std::vector<uint8_t>& lmp_event_ids) override;
  ::ndk::ScopedAStatus unregisterLmpEvents(const std::array<uint8_t, 6>& address) override;

 private:
  ::android::hardware::bluetooth::ExtensionHandle hci_handle_;
};

}  // namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation
