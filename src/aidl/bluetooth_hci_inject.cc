#define LOG_TAG "bthal.aidl.hci_inject"

#include "aidl/bluetooth_hci_inject.h"

#include <android-base/logging.h>

#include <atomic>

namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation {
namespace {

std::atomic<BluetoothHciInject*> g_instance{nullptr};

::ndk::ScopedAStatus Refuse(const char* operation) {
  LOG(WARNING) << operation << ": refused, hCI command injection is not offered";
  return ::ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_UNSUPPORTED_OPERATION,
                                                            "HCI command injection is not offered");
}

}  // namespace

BluetoothHciInject::BluetoothHciInject() { g_instance = this; }

BluetoothHciInject::~BluetoothHciInject() { g_instance = nullptr; }

BluetoothHciInject* BluetoothHciInject::GetInstance() { return g_instance; }

void BluetoothHciInject::OnBluetoothEnabled(HciFlowControl* flow_control) {
  LOG(DEBUG) << __func__;
  hci_handle_.Set(flow_control);
}

void BluetoothHciInject::OnBluetoothDisabled() {
  LOG(DEBUG) << __func__;
  hci_handle_.Clear();
}

::ndk::ScopedAStatus BluetoothHciInject::sendHciCommand(const std::vector<uint8_t>& /*command*/) {
  return Refuse(__func__);
}

}  // namespace vendor::tovani::bluetooth_ext::hci_inject::aidl::implementation
