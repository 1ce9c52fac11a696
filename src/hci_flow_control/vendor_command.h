// How the service sends a command of its own.
#pragma once

#include <cstddef>

#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth::hci {

// Logs `command` in the snoop log and sends it; its answer comes to whoever watches for it. `completed` is false for a
// command that the controller does not complete. Returns what the flow control does.
size_t SendVendorCommand(HciFlowControl& flow_control, const HciPacket& command, bool completed = true);

}  // namespace android::hardware::bluetooth::hci
