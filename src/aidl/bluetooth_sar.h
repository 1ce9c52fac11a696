// Transmit-power caps.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothSar.h>

#include <cstdint>

#include "aidl/extension.h"

namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation {

// This service drives no command that caps the power: every cap is refused.
class BluetoothSar
    : public ::android::hardware::bluetooth::Extension<BluetoothSar,
                                                       ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothSar> {
 public:
  static constexpr char kLogTag[] = "bthal.aidl.sar";

  ::ndk::ScopedAStatus setBluetoothTxPowerCap(int8_t cap) override;
};

}  // namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation
