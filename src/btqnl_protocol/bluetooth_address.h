// Writes the device's provisioned address into the controller.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth::hci {

// The six bytes of an address as HCI carries them, least significant first.
using AddressBytes = std::array<uint8_t, 6>;

// Reads the text forms "AA:BB:CC:DD:EE:FF" and "AABBCCDDEEFF", either case, most significant byte first; blanks may
// stand before each pair. What follows the sixth pair is ignored. False, with `bytes` all zero, for any other text.
bool ParseBluetoothAddress(const std::string& text, AddressBytes* bytes);

// Reads the address from the device tree, else from "ro.vendor.bluetooth.evb_bdaddr", writes it to the controller and
// waits for its verdict (at most two seconds, or until the flow control is halted). Returns true when the controller
// accepted it. Without a usable source the error is reported and the zero address written.
bool ApplyProvisionBDAddress(HciFlowControl* flow_control);

}  // namespace android::hardware::bluetooth::hci
