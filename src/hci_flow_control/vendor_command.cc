#include "hci_flow_control/vendor_command.h"

#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::hci {

size_t SendVendorCommand(HciFlowControl& flow_control, const HciPacket& command, bool completed) {
  constexpr auto kType = static_cast<uint8_t>(HciPacketType::kCommand);
  VndSnoopLogger::Get().Capture(command, VndSnoopLogger::kToController, VndSnoopLogger::kCommand);
  return completed ? flow_control.Send(kType, command.data(), command.size())
                   : flow_control.SendNoAck(kType, command.data(), command.size());
}

}  // namespace android::hardware::bluetooth::hci
