// Log lines on behalf of others.
#pragma once

#include <string>

#include <android-base/logging.h>

namespace android::hardware::bluetooth::os {

// One line under `tag` (null: the default tag), for code that serves callers with tags of their own.
void LogAs(const char* tag, ::android::base::LogSeverity severity, const std::string& text);

}  // namespace android::hardware::bluetooth::os
