#include "aidl/bluetooth_ccc.h"

namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation {
namespace {

constexpr char kNotOffered[] = "LMP event registration is not offered";

}  // namespace

::ndk::ScopedAStatus BluetoothCcc::registerForLmpEvents(const std::array<uint8_t, 6>& /*address*/,
                                                        const std::vector<uint8_t>& /*lmp_event_ids*/) {
  return Refuse(__func__, kNotOffered);
}

::ndk::ScopedAStatus BluetoothCcc::unregisterLmpEvents(const std::array<uint8_t, 6>& /*address*/) {
  return Refuse(__func__, kNotOffered);
}

}  // namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation
