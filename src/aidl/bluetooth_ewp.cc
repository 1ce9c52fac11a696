#define LOG_TAG "bthal.aidl.ewp"

#include "aidl/bluetooth_ewp.h"

#include <android-base/logging.h>

#include <atomic>

namespace vendor::tovani::bluetooth_ext::ewp::aidl::implementation {
namespace {

std::atomic<BluetoothEwp*> g_instance{nullptr};

}  // namespace

BluetoothEwp::BluetoothEwp() { g_instance = this; }

BluetoothEwp::~BluetoothEwp() { g_instance = nullptr; }

BluetoothEwp* BluetoothEwp::GetInstance() { return g_instance; }

void BluetoothEwp::OnBluetoothEnabled(HciFlowControl* flow_control) {
  LOG(DEBUG) << __func__;
  hci_handle_.Set(flow_control);
}

void BluetoothEwp::OnBluetoothDisabled() {
  LOG(DEBUG) << __func__;
  hci_handle_.Clear();
}

}  // namespace vendor::tovani::bluetooth_ext::ewp::aidl::implementation
