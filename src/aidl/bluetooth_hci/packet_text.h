// Packets in the debug record.
#pragma once

#include <stdio.h>

#include <cstddef>
#include <string>

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// "<name>: <size> bytes", formatted once for each packet that crosses the service.
inline std::string PacketText(const char* name, size_t size) {
  char text[64];
  const int length = snprintf(text, sizeof(text), "%s: %zu bytes", name, size);
  return {text, static_cast<size_t>(length)};
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
