#include "sim/base/event.h"

namespace bthal::sim {

const char* ToString(WireEvent event) {
  switch (event) {
    case WireEvent::kPowerOn:
      return "power on";
    case WireEvent::kPowerOff:
      return "power off";
    case WireEvent::kHostSpeed:
      return "host speed";
    case WireEvent::kSpeed:
      return "controller speed";
    case WireEvent::kReceived:
      return "received";
    case WireEvent::kSent:
      return "sent";
    case WireEvent::kLostBytes:
      return "lost bytes";
    case WireEvent::kProtocolError:
      return "protocol error";
    case WireEvent::kWakeLine:
      return "wake line";
    case WireEvent::kLpmDriver:
      return "low-power driver";
    case WireEvent::kWakeLock:
      return "wake lock";
    case WireEvent::kWakeUnlock:
      return "wake unlock";
    case WireEvent::kUartDebug:
      return "UART control";
    case WireEvent::kCoexMessage:
      return "coexistence message";
    case WireEvent::kPatchRecord:
      return "patch record";
    case WireEvent::kPatchLaunched:
      return "patch launched";
    case WireEvent::kBooted:
      return "booted";
    case WireEvent::kSleepModeSet:
      return "sleep mode set";
    case WireEvent::kFault:
      return "fault";
    case WireEvent::kHubRequest:
      return "hub request";
  }
  return "unknown";
}

}  // namespace bthal::sim
