#pragma once

#include <cstdint>

namespace android::hardware::bluetooth {

// The speeds of the controller's UART; the value is the rate in bit/s.
enum class UartBaudRate : uint32_t {
  kUartBaudRate115200 = 115200,
  kUartBaudRate3000000 = 3000000,
  kUartBaudRate4000000 = 4000000,
  kUartBaudRate6000000 = 6000000,
};

}  // namespace android::hardware::bluetooth
