// The configuration reader, beside the C library's own line and token functions.
#include <android-base/logging.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "conf/conf.h"

namespace {

using ::android::hardware::bluetooth::conf::Config;

// What the last line that sets `key` sets it to; `otherwise` if none does.
std::string LastValue(FILE* file, const char* key, const std::string& otherwise) {
  std::string last = otherwise;
  char line[256];
  while (fgets(line, sizeof(line), file) != nullptr) {
    if (line[0] == '#') continue;
    char* rest = nullptr;
    const char* name = strtok_r(line, " =\n\r\t", &rest);
    const char* value = name == nullptr ? nullptr : strtok_r(nullptr, "=\n\r\t", &rest);
    if (value == nullptr || strcmp(name, key) != 0) continue;
    last = value;
    last.erase(0, last.find_first_not_of(" \t"));
    last.erase(last.find_last_not_of(" \t") + 1);
  }
  return last;
}

int ConfigFile() {
  static const int fd = [] {
    android::base::SetLogger([](auto...) {});
    setenv("BTHAL_ROOT", "/proc/self/fd", 1);  // a path is then the number of an open descriptor
    return memfd_create("conf", 0);
  }();
  return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int fd = ConfigFile();
  static const Config kDefaults = Config::Preview();
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) abort();

  Config config = kDefaults;
  config.LoadConfig("/" + std::to_string(fd));
  FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "r");
  const std::string expected = file == nullptr ? kDefaults.uart_port : LastValue(file, "UartPort", kDefaults.uart_port);
  if (file != nullptr) fclose(file);
  if (config.uart_port != expected) abort();
  if (config.Settings().size() != kDefaults.Settings().size()) abort();
  return 0;
}
