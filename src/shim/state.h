// What the shim's files share.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "h4/uart_link.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth::hci::shim {

// Process-wide, never destroyed.
struct State {
  std::atomic<uint32_t> userial_type{kUserialAutoInit};

  std::mutex mutex;  // guards what follows; never held across a call out of the shim
  std::shared_ptr<HciFlowControl> flow;
  Consumers consumers;  // of the flow control connected last
  int connected_flows = 0;
};

State& GetState();

inline std::shared_ptr<HciFlowControl> CurrentFlow() {
  const std::lock_guard lock(GetState().mutex);
  return GetState().flow;
}

// Every type but the sensor hub's.
inline bool IsUartPath() { return GetState().userial_type != kUserialAoc; }

// Puts the freshly opened port under the flow control that is alive, if one is. False if it cannot be read.
bool ReconnectUart();

}  // namespace android::hardware::bluetooth::hci::shim
