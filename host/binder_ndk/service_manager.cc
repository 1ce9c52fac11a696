#include <android/binder_manager.h>

#include <chrono>
#include <optional>
#include <thread>

#include "connection/connection.h"
#include "parcel.h"
#include "process.h"
#include "service_list.h"

namespace {

using bthal::binder::Process;

constexpr std::chrono::seconds kGetServicePatience{5};
constexpr std::chrono::milliseconds kLookAgain{10};

// Looks until the service is there, or the time is up; without a time, for ever.
AIBinder* Await(const char* instance, std::optional<std::chrono::seconds> patience) {
  const auto begin = std::chrono::steady_clock::now();
  for (;;) {
    AIBinder* service = AServiceManager_checkService(instance);
    if (service != nullptr) return service;
    if (patience.has_value() && std::chrono::steady_clock::now() - begin >= *patience) return nullptr;
    std::this_thread::sleep_for(kLookAgain);
  }
}

}  // namespace

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
  if (instance == nullptr) return EX_ILLEGAL_ARGUMENT;
  return Process::Get().services().Add(binder, instance);
}

AIBinder* AServiceManager_checkService(const char* instance) {
  if (instance == nullptr) return nullptr;
  const std::string socket_name = bthal::binder::SocketOfService(instance);
  if (socket_name.empty()) return nullptr;
  ndk::SpAIBinder service;
  if (Process::Get().services().IsOwnSocket(socket_name)) {
    service = Process::Get().services().Find(instance);
  } else if (const auto connection = Process::Get().ConnectTo(socket_name)) {
    AParcel request;
    bthal::binder::WriteText(&request, instance);
    bthal::binder::ParcelPtr answer;
    const binder_status_t status =
        connection->Call(bthal::binder::kServiceListId, bthal::binder::kFindServiceCode, &request, -1, &answer);
    if (status != STATUS_OK || AParcel_readStrongBinder(answer.get(), service.getR()) != STATUS_OK) return nullptr;
  }
  AIBinder_incStrong(service.get());
  return service.get();
}

AIBinder* AServiceManager_getService(const char* instance) { return Await(instance, kGetServicePatience); }
AIBinder* AServiceManager_waitForService(const char* instance) { return Await(instance, std::nullopt); }
