// bthal services: what is published, by whom, and whether it lives.
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothCcc.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothEwp.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothExt.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothSar.h>
#include <host/service_registry.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/device_root.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

namespace ext = ::aidl::vendor::tovani::bluetooth_ext;

void PrintRow(const std::string& instance, Colour colour, const char* state, const std::string& pid) {
  printf("%s  %6s  %s\n", Paint(colour, std::string(state) + std::string(10 - strlen(state), ' ')).c_str(), pid.c_str(),
         instance.c_str());
}

int Run() {
  std::string error;
  if (!MeetingPlaceIsOpen(&error)) return Complain(error);
  std::vector<::bthal::host::RegisteredService> found = ::bthal::host::ListServices();
  bool all_alive = true;
  for (const char* descriptor :
       {::aidl::android::hardware::bluetooth::IBluetoothHci::descriptor, ext::IBluetoothCcc::descriptor,
        ext::IBluetoothExt::descriptor, ext::IBluetoothEwp::descriptor, ext::IBluetoothFinder::descriptor,
        ext::IBluetoothSar::descriptor, ext::IBTChannelAvoidance::descriptor}) {
    const std::string instance = std::string(descriptor) + "/default";
    const auto entry = std::ranges::find(found, instance, &::bthal::host::RegisteredService::instance);
    if (entry == found.end()) {
      PrintRow(instance, Colour::kBad, "absent", "-");
      all_alive = false;
      continue;
    }
    PrintRow(instance, entry->alive ? Colour::kGood : Colour::kBad, entry->alive ? "alive" : "dead",
             std::to_string(entry->pid));
    all_alive &= entry->alive;
    found.erase(entry);
  }
  for (const auto& other : found) {
    PrintRow(other.instance, Colour::kPlain, other.alive ? "alive" : "dead", std::to_string(other.pid));
  }
  return all_alive ? 0 : 1;
}

}  // namespace

void AddServices(Command& app) {
  Command sub = app.Add("services", "List the Binder services that the HAL publishes, and their process");
  sub.Footer("Exit status 0 when all seven are alive, 1 otherwise.");
  sub.Run(Run);
}

}  // namespace bthal::tool
