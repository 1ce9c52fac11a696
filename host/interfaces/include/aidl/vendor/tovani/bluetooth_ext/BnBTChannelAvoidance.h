// The base of an object that implements IBTChannelAvoidance.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>

namespace aidl::vendor::tovani::bluetooth_ext {

class BnBTChannelAvoidance : public ::bthal::host::Stub<IBTChannelAvoidance> {};

}  // namespace aidl::vendor::tovani::bluetooth_ext
