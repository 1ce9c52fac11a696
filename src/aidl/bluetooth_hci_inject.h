// HCI command injection beside the stack.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothExt.h>

#include <cstdint>
#include <vector>

#include "aidl/extension.h"

namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation {

// Injection is not offered: what the stack does not know of would upset its own account of the controller.
class BluetoothHciInject
    : public ::android::hardware::bluetooth::Extension<BluetoothHciInject,
                                                       ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothExt> {
 public:
  static constexpr char kLogTag[] = "bthal.aidl.hci_inject";

  ::ndk::ScopedAStatus sendHciCommand(const std::vector<uint8_t>& command) override;
};

}  // namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation
