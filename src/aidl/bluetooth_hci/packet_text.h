// Packets in the debug record.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// A text made once for each packet that crosses the service, kept within itself. What is longer is cut off. Put
// together by hand: reading a format took longer than everything else that the record does for a packet.
class PacketText {
 public:
  // "<name>: <size> bytes"
  PacketText(std::string_view name, size_t size) {
    Append(name);
    Append(": ");
    AppendSize(size);
  }
  // "<name>: 0x<opcode> - <size> bytes"
  PacketText(std::string_view name, uint16_t opcode, size_t size) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    Append(name);
    Append(": 0x");
    for (const int shift : {12, 8, 4, 0}) Append(kDigits.substr(opcode >> shift & 0xF, 1));
    Append(" - ");
    AppendSize(size);
  }

  // NOLINTNEXTLINE(google-explicit-constructor): it is nothing but a text
  operator std::string_view() const { return {text_.data(), length_}; }

 private:
  void Append(std::string_view text) {
    const size_t count = std::min(text.size(), text_.size() - length_);
    std::copy_n(text.data(), count, text_.data() + length_);
    length_ += count;
  }
  void AppendSize(size_t size) {
    std::array<char, 20> digits;
    const char* const end = std::to_chars(digits.begin(), digits.end(), size).ptr;
    Append({digits.data(), static_cast<size_t>(end - digits.data())});
    Append(" bytes");
  }

  std::array<char, 64> text_;
  size_t length_ = 0;
};

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
