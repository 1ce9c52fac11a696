// bthal services: what is published, by whom, and whether it lives.
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothCcc.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothEwp.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothExt.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothSar.h>
#include <android-base/file.h>
#include <host/service_registry.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/device_root.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

namespace ext = ::aidl::vendor::tovani::bluetooth_ext;

void PrintRow(const std::string& instance, Colour colour, const std::string& state, const std::string& pid) {
  printf("%s  %6s  %s\n", Paint(colour, state + std::string(10 - state.size(), ' ')).c_str(), pid.c_str(),
         instance.c_str());
}

// Whether it stands still, by SIGSTOP or a debugger: then it answers nobody. It may have another number here, or none,
// where it runs in another container.
bool IsStopped(pid_t pid) {
  std::string stat;
  ::android::base::ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &stat);
  const size_t name_ends = stat.rfind(") ");
  const char state = name_ends == std::string::npos ? '?' : stat[name_ends + 2];
  return state == 'T' || state == 't';
}

const char* StateOf(const ::bthal::host::RegisteredService& service) {
  return !service.alive ? "dead" : IsStopped(service.pid) ? "stopped" : "alive";
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
    const std::string state = StateOf(*entry);
    PrintRow(instance, state == "alive" ? Colour::kGood : Colour::kBad, state, std::to_string(entry->pid));
    all_alive &= state == "alive";
    found.erase(entry);
  }
  for (const auto& other : found) {
    PrintRow(other.instance, Colour::kPlain, StateOf(other), std::to_string(other.pid));
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
