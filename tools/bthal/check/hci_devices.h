// The controllers that this machine's kernel has, as it tells them to anybody.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bthal::tool {

struct HciDevice {
  uint16_t number = 0;
  std::string bus;  // "USB", "UART", "virtual", or "bus 5"
  bool up = false;
  bool lent = false;  // a process has its user channel
};

// By their numbers. Nothing, with errno, where the kernel has no Bluetooth.
std::optional<std::vector<HciDevice>> HciDevices();

}  // namespace bthal::tool
