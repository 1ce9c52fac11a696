#define LOG_TAG "bthal.debug_central"

#include "debug_central/error_kinds.h"

#include <android-base/logging.h>

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// Neither inlined nor folded into one by compiler or linker: each passes the line on which it is listed to the log.
#define ERROR_KIND(name, reason) \
  __attribute__((noinline)) void name(const std::string& message) { LOG(FATAL) << message; }
#include "debug_central/error_kinds.inc"
#undef ERROR_KIND

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
