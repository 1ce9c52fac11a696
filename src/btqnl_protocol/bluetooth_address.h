// Writes the device's provisioned address into the controller.
#pragma once

#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth::hci {

// Reads the address from the device tree, else from "ro.vendor.bluetooth.evb_bdaddr", writes it to the controller and
// waits for its verdict (at most two seconds, or until the flow control is halted). Returns true when the controller
// accepted it. Without a usable source the error is reported and the zero address written.
bool ApplyProvisionBDAddress(HciFlowControl* flow_control);

}  // namespace android::hardware::bluetooth::hci
