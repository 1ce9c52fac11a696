#include "os/log_as.h"

namespace android::hardware::bluetooth::os {

void LogAs(const char* tag, ::android::base::LogSeverity severity, const std::string& text) {
  if (severity < ::android::base::GetMinimumLogSeverity()) return;
  ::android::base::LogMessage(__FILE__, __LINE__, severity, tag, -1).stream() << text;
}

}  // namespace android::hardware::bluetooth::os
