// The interface IBluetoothEwp, which has no operations.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothEwp.h>

#include "aidl/extension.h"

namespace vendor::tovani::bluetooth_ext::ewp::aidl::implementation {

// Published because the platform asks for it by name.
class BluetoothEwp
    : public ::android::hardware::bluetooth::Extension<BluetoothEwp,
                                                       ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothEwp> {
 public:
  static constexpr char kLogTag[] = "bthal.aidl.ewp";
};

}  // namespace vendor::tovani::bluetooth_ext::ewp::aidl::implementation
