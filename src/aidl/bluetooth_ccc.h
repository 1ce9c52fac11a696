// Digital keys: LMP event registration and time sync.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothCcc.h>

#include <array>
#include <cstdint>
#include <vector>

#include "aidl/extension.h"

namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation {

// This service drives no command that reports LMP events: every registration is refused.
class BluetoothCcc
    : public ::android::hardware::bluetooth::Extension<BluetoothCcc,
                                                       ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothCcc> {
 public:
  static constexpr char kLogTag[] = "bthal.aidl.ccc";

  ::ndk::ScopedAStatus registerForLmpEvents(const std::array<uint8_t, 6>& address,
                                            const std::vector<uint8_t>& lmp_event_ids) override;
  ::ndk::ScopedAStatus unregisterLmpEvents(const std::array<uint8_t, 6>& address) override;
};

}  // namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation
