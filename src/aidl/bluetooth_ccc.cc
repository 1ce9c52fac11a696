#define LOG_TAG "bthal.aidl.ccc"

#include "aidl/bluetooth_ccc.h"

#include <android-base/logging.h>

#include <atomic>

namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation {
namespace {

std::atomic<BluetoothCcc*> g_instance{nullptr};

::ndk::ScopedAStatus Refuse(const char* operation) {
  LOG(WARNING) << operation << ": refused, this controller does not report LMP events";
  return ::ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_UNSUPPORTED_OPERATION,
                                                            "This controller does not report LMP events");
}

}  // namespace

BluetoothCcc::BluetoothCcc() { g_instance = this; }

BluetoothCcc::~BluetoothCcc() { g_instance = nullptr; }

BluetoothCcc* BluetoothCcc::GetInstance() { return g_instance; }

void BluetoothCcc::OnBluetoothEnabled(HciFlowControl* flow_control) {
  LOG(DEBUG) << __func__;
  hci_handle_.Set(flow_control);
}

void BluetoothCcc::OnBluetoothDisabled() {
  LOG(DEBUG) << __func__;
  hci_handle_.Clear();
}

::ndk::ScopedAStatus BluetoothCcc::registerForLmpEvents(const std::array<uint8_t, 6>& /*address*/,
                                                        const std::vector<uint8_t>& /*lmp_event_ids*/) {
  return Refuse(__func__);
}

::ndk::ScopedAStatus BluetoothCcc::unregisterLmpEvents(const std::array<uint8_t, 6>& /*address*/) {
  return Refuse(__func__);
}

}  // namespace vendor::tovani::bluetooth_ext::ccc::aidl::implementation
