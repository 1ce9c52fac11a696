// What every call to a published service needs. Every failure leaves one line in `error`.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

namespace bthal::tool {

// Not null, but where nothing that lives is published under the name.
::ndk::SpAIBinder FindService(const std::string& instance, std::string* error);

bool CallWorked(const ::ndk::ScopedAStatus& status, const char* call, std::string* error);

}  // namespace bthal::tool
