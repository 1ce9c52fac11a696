#define LOG_TAG "bthal.aidl.qnlbtlinux"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "aidl/bluetooth_ccc.h"
#include "aidl/bluetooth_ewp.h"
#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_hci/controller_activity_watcher.h"
#include "aidl/bluetooth_hci_inject.h"
#include "aidl/bluetooth_sar.h"
#include "aidl/bt_channel_avoidance.h"
#include "bluetooth_Activity.h"
#include "debug_central/debug_central.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

namespace ext = ::vendor::tovani::bluetooth_ext;
using ::android::base::StringPrintf;

// Calls `visit` with each extension that this process has made, in the order in which they are switched.
template <typename Visitor>
void ForEachExtension(Visitor visit) {
  const auto visit_made = [&visit](auto* extension) {
    if (extension != nullptr) visit(*extension);
  };
  visit_made(ext::bt_channel_avoidance::aidl::implementation::BTChannelAvoidance::GetInstance());
  visit_made(ext::sar::aidl::implementation::BluetoothSar::GetInstance());
  visit_made(ext::ccc::aidl::implementation::BluetoothCcc::GetInstance());
  visit_made(ext::ewp::aidl::implementation::BluetoothEwp::GetInstance());
  visit_made(ext::hci_inject::aidl::implementation::BluetoothHciInject::GetInstance());
}

}  // namespace

void BluetoothHci::JoinExtensionThread() {
  if (extension_thread_.joinable()) extension_thread_.join();
}

// On a thread of its own, so that the client need not wait for it.
void BluetoothHci::startVarneHalExtensions() {
  LOG(INFO) << __func__ << ": Enable Bluetooth HAL Extensions";
  const auto flow_control = hci_handle();
  ForEachExtension([&](auto& extension) { extension.OnBluetoothEnabled(flow_control.get()); });
  BtActivitiesLogger::Get().OnBluetoothEnabled();
  if (flow_control != nullptr) flow_control->RegisterEventWatcher(activity_watcher_.get());
  if (activity_watcher_->startWatcher()) return;
  LOG(ERROR) << "ActivityWatcher registering failure";
  DebugCentral::Get().UpdateRecord(AnchorType::kExtensionStart,
                                   StringPrintf("%s: ActivityWatcher registering failure", __func__));
}

void BluetoothHci::stopVarneHalExtensions() {
  JoinExtensionThread();
  LOG(INFO) << __func__ << ": Disable Bluetooth HAL Extensions";
  ForEachExtension([](auto& extension) { extension.OnBluetoothDisabled(); });
  BtActivitiesLogger::Get().OnBluetoothDisabled();
  if (!activity_watcher_->stopWatcher()) LOG(ERROR) << "ActivityWatcher unregistering failure";
  if (const auto flow_control = hci_handle()) flow_control->UnregisterEventWatcher(activity_watcher_.get());
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
