#include "bthal/run/service_calls.h"

#include <android-base/stringprintf.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

namespace bthal::tool {

using ::android::base::StringPrintf;

::ndk::SpAIBinder FindService(const std::string& instance, std::string* error) {
  ABinderProcess_startThreadPool();
  ::ndk::SpAIBinder service(AServiceManager_checkService(instance.c_str()));
  if (service.get() == nullptr) *error = instance + " is not published: start the service first (bthal supervise)";
  return service;
}

bool CallWorked(const ::ndk::ScopedAStatus& status, const char* call, std::string* error) {
  if (status.isOk()) return true;
  if (status.getStatus() == STATUS_DEAD_OBJECT) {
    *error = StringPrintf("%s: the service has died", call);
  } else if (status.getExceptionCode() == EX_SERVICE_SPECIFIC) {
    *error = StringPrintf("%s: the service refuses with error %d", call, status.getServiceSpecificError());
  } else {
    const std::string message = status.getMessage();
    *error = StringPrintf("%s: the service refuses: %s", call,
                          message.empty() ? status.getDescription().c_str() : message.c_str());
  }
  return false;
}

}  // namespace bthal::tool
