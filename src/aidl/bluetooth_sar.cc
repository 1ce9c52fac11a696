#define LOG_TAG "bthal.aidl.sar"

#include "aidl/bluetooth_sar.h"

#include <android-base/logging.h>

#include <atomic>

namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation {
namespace {

std::atomic<BluetoothSar*> g_instance{nullptr};

::ndk::ScopedAStatus Refuse(const char* operation) {
  LOG(WARNING) << operation << ": refused, this controller has no transmit-power caps";
  return ::ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_UNSUPPORTED_OPERATION,
                                                            "This controller has no transmit-power caps");
}

}  // namespace

BluetoothSar::BluetoothSar() { g_instance = this; }

BluetoothSar::~BluetoothSar() { g_instance = nullptr; }

BluetoothSar* BluetoothSar::GetInstance() { return g_instance; }

void BluetoothSar::OnBluetoothEnabled(HciFlowControl* flow_control) {
  LOG(DEBUG) << __func__;
  hci_handle_.Set(flow_control);
}

void BluetoothSar::OnBluetoothDisabled() {
  LOG(DEBUG) << __func__;
  hci_handle_.Clear();
}

::ndk::ScopedAStatus BluetoothSar::setBluetoothTxPowerCap(int8_t /*cap*/) { return Refuse(__func__); }

}  // namespace vendor::tovani::bluetooth_ext::sar::aidl::implementation
