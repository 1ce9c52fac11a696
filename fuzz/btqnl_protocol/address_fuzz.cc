// Address texts: what is taken has twelve digits at its start, as the two forms have them, and gives exactly those;
// what is not leaves the zero address.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "conf/provisioned_address.h"

namespace conf = android::hardware::bluetooth::conf;

namespace {

void Check(bool holds) {
  if (!holds) abort();
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  conf::AddressBytes bytes{9, 9, 9, 9, 9, 9};
  if (!conf::ParseBluetoothAddress(text, &bytes)) {
    Check(bytes == conf::AddressBytes{});
    return 0;
  }
  // Both forms written back must be taken again, and mean the same.
  char colons[18];
  char plain[13];
  snprintf(colons, sizeof(colons), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[5], bytes[4], bytes[3], bytes[2], bytes[1],
           bytes[0]);
  snprintf(plain, sizeof(plain), "%02x%02x%02x%02x%02x%02x", bytes[5], bytes[4], bytes[3], bytes[2], bytes[1],
           bytes[0]);
  for (const char* form : {colons, plain}) {
    conf::AddressBytes again{};
    Check(conf::ParseBluetoothAddress(form, &again) && again == bytes);
  }
  // A text that begins with two digits a pair is one of the two.
  const std::string start = Lower(text).substr(0, 17);
  if (start.size() >= 12 && start.find_first_not_of("0123456789abcdef") >= 12) Check(start.substr(0, 12) == plain);
  return 0;
}
