// Packets in the debug record.
#pragma once

#include <stdio.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// A text formatted once for each packet that crosses the service, kept within itself. What is longer is cut off.
class PacketText {
 public:
  // "<name>: <size> bytes"
  PacketText(const char* name, size_t size) { Format("%s: %zu bytes", name, size); }
  // "<name>: 0x<opcode> - <size> bytes"
  PacketText(const char* name, uint16_t opcode, size_t size) { Format("%s: 0x%04X - %zu bytes", name, opcode, size); }

  // NOLINTNEXTLINE(google-explicit-constructor): it is nothing but a text
  operator std::string_view() const { return {text_.data(), length_}; }

 private:
  template <typename... Args>
  void Format(const char* format, Args... args) {
    const int length = snprintf(text_.data(), text_.size(), format, args...);
    length_ = std::min(static_cast<size_t>(length), text_.size() - 1);
  }

  std::array<char, 64> text_;
  size_t length_ = 0;
};

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
