#define LOG_TAG "android.hardware.bluetooth-service.qnlbtlinux"

#include <android-base/logging.h>
// The process entry: makes the services, publishes them, and lends its thread to Binder.

#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <memory>
#include <string>

#include "aidl/bluetooth_ccc.h"
#include "aidl/bluetooth_ewp.h"
#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_hci_inject.h"
#include "aidl/bluetooth_pof.h"
#include "aidl/bluetooth_sar.h"
#include "aidl/bt_channel_avoidance.h"
#include "conf/conf.h"
#include "os/process_setup.h"

namespace {

namespace ext = ::vendor::tovani::bluetooth_ext;
using ::android::hardware::bluetooth::aidl::qnlbtlinux::BluetoothHci;
using ext::bt_channel_avoidance::aidl::implementation::BTChannelAvoidance;
using ext::ccc::aidl::implementation::BluetoothCcc;
using ext::ewp::aidl::implementation::BluetoothEwp;
using ext::finder::aidl::implementation::BluetoothFinder;
using ext::hci_inject::aidl::implementation::BluetoothHciInject;
using ext::sar::aidl::implementation::BluetoothSar;

// With the main thread, which joins the pool, two threads serve calls.
constexpr uint32_t kPoolThreads = 1;

const ::android::hardware::bluetooth::conf::Config& LoadSettings() {
  // What the loading logs needs the process set up.
  ::android::hardware::bluetooth::os::SetUpProcess();
  ::android::hardware::bluetooth::os::EndUnlessOnlyService();
  return ::android::hardware::bluetooth::conf::Config::GetInstance();
}

// The files are read before main() and before any thread: the first part of the start-up already asks for settings.
[[maybe_unused]] const auto& g_config = LoadSettings();

template <typename Service>
bool Publish(const std::shared_ptr<Service>& service) {
  const std::string instance = std::string(Service::descriptor) + "/default";
  return AServiceManager_addService(service->asBinder().get(), instance.c_str()) == EX_NONE;
}

// An extension that cannot be published leaves the HAL usable.
template <typename Service>
void PublishExtension(const std::shared_ptr<Service>& service, const char* name) {
  if (!Publish(service)) LOG(ERROR) << "Could not register " << name << " as a service!";
}

}  // namespace

int main() {
  ABinderProcess_setThreadPoolMaxThreadCount(kPoolThreads);
  ABinderProcess_startThreadPool();

  const auto ccc = ndk::SharedRefBase::make<BluetoothCcc>();
  const auto hci_inject = ndk::SharedRefBase::make<BluetoothHciInject>();
  const auto ewp = ndk::SharedRefBase::make<BluetoothEwp>();
  const auto finder = ndk::SharedRefBase::make<BluetoothFinder>();
  const auto sar = ndk::SharedRefBase::make<BluetoothSar>();
  const auto channel_avoidance = ndk::SharedRefBase::make<BTChannelAvoidance>();
  const auto hci = ndk::SharedRefBase::make<BluetoothHci>();

  PublishExtension(ccc, "BluetoothCcc");
  PublishExtension(hci_inject, "BluetoothHciInject");
  PublishExtension(ewp, "BluetoothEwp");
  PublishExtension(finder, "BluetoothFinder");
  PublishExtension(sar, "BluetoothSar");
  PublishExtension(channel_avoidance, "BTChannelAvoidance");
  if (Publish(hci)) {
    ABinderProcess_joinThreadPool();
  } else {
    LOG(ERROR) << "Could not register as a service!";
  }
  return 0;
}
