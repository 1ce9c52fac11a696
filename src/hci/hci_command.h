// Commands that the service itself sends or looks for.
#pragma once

#include <cstdint>
#include <span>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// Asks the controller for its debug information. It must pass also when the controller answers nothing any more.
inline constexpr uint16_t kOpcodeDebugInformation = 0xFD5B;

// The command with its header. At most 255 bytes of parameters.
HciPacket BuildCommand(uint16_t opcode, std::span<const uint8_t> parameters);

}  // namespace android::hardware::bluetooth::hci
