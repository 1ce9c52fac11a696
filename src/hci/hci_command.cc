#include "hci/hci_command.h"

#include <algorithm>

namespace android::hardware::bluetooth::hci {

HciPacket BuildCommand(uint16_t opcode, std::span<const uint8_t> parameters) {
  HciPacket command;
  command.resize(kCommandHeaderSize + parameters.size());
  command[0] = static_cast<uint8_t>(opcode);
  command[1] = static_cast<uint8_t>(opcode >> 8);
  command[2] = static_cast<uint8_t>(parameters.size());
  std::copy(parameters.begin(), parameters.end(), command.begin() + kCommandHeaderSize);
  return command;
}

}  // namespace android::hardware::bluetooth::hci
