// The board's settings.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bthal::sim {

struct BoardOptions {
  std::string root;  // the device root to furnish; created if absent
  uint8_t chip_id = 188;
  bool otp_written = false;
  std::string local_name = "QNL188 Virtual Controller";
  std::string address = "22:22:5A:01:02:03";  // until another is written
  bool provision_address = true;              // the device tree carries `provisioned_address`
  std::string provisioned_address = "AA:BB:CC:11:22:33";
  size_t patch_records = 240;
  bool hub = false;        // a sensor hub has the UART, and the furnished configuration says so
  bool pace = false;       // deliver bytes at the real bit rate
  bool only_coex = false;  // play nothing but /dev/wbrc
  bool furnish = true;     // also make configuration, battery, device tree and patch files
  std::string backend;     // "unix:PATH" of an H4 controller emulator for the standard commands; empty: our own
  std::vector<std::string> faults;  // see ParseFault in sim/controller/faults.h for the language

  // From the answer to Launch RAM the patch boots for so long, and hears nothing.
  std::chrono::milliseconds patch_boots_in{100};
  // With sleep mode set, the wake line must be low for so long before the controller no longer hears.
  std::chrono::milliseconds falls_asleep_after{100};
  // The journal forgets the bytes of its oldest data packets (not their lengths) beyond so many bytes of them.
  size_t journal_data_bytes = size_t{256} * 1024 * 1024;
};

}  // namespace bthal::sim
