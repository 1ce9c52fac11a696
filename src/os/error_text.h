// System errors in log lines.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>

namespace android::hardware::bluetooth::os {

// "No such file or directory (2)".
inline std::string ErrorText(int error = errno) {
  return std::string(strerror(error)) + " (" + std::to_string(error) + ")";
}

}  // namespace android::hardware::bluetooth::os
