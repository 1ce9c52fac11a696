#include "conf/provisioned_address.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <android-base/properties.h>
#include <android-base/unique_fd.h>

#include "os/file_utils.h"

namespace android::hardware::bluetooth::conf {
namespace {

constexpr size_t kAddressTextSize = 4096;  // blanks and all

// Scans six pairs in `format`, which stores a byte for each pair and how far the text was read.
bool ScanAddress(const std::string& text, const char* format, AddressBytes* bytes) {
  AddressBytes pairs{};
  int end = 0;
  const int conversions =
      sscanf(text.c_str(), format, &pairs[0], &pairs[1], &pairs[2], &pairs[3], &pairs[4], &pairs[5], &end);
  if (conversions < static_cast<int>(pairs.size())) return false;
  // The conversions would also take signs and "0x", and make an address of "AA-BB-CC-DD-EE-FF" that nobody has given.
  if (text.find_first_not_of("0123456789ABCDEFabcdef: \t\v\f\r") < static_cast<size_t>(end)) return false;
  std::reverse_copy(pairs.begin(), pairs.end(), bytes->begin());
  return true;
}

}  // namespace

AddressText ReadAddressText() {
  const ::android::base::unique_fd entry = os::OpenRegularFile(kDeviceTreeAddressPath, O_RDONLY);
  if (!entry.ok()) return {::android::base::GetProperty(kAddressProperty, ""), /*from_device_tree=*/false};
  std::string text(kAddressTextSize, '\0');
  const ssize_t size = TEMP_FAILURE_RETRY(read(entry.get(), text.data(), text.size()));
  text.resize(size < 0 ? 0 : static_cast<size_t>(size));
  return {text.substr(0, text.find('\n')), /*from_device_tree=*/true};
}

bool ParseBluetoothAddress(const std::string& text, AddressBytes* bytes) {
  *bytes = {};
  return ScanAddress(text, "%02hhx:%02hhx:%02hhx:%02hhx:%02hhx:%02hhx%n", bytes) ||
         ScanAddress(text, "%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx%n", bytes);
}

}  // namespace android::hardware::bluetooth::conf
