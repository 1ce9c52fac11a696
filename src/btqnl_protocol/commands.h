// The vendor command exchange on which every bring-up step rests. For the files of BtQnlProtocol.
#pragma once

#include <cstdint>

#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth {

// The commands of bring-up.
inline constexpr uint16_t kOpcodeReset = 0x0C03;
inline constexpr uint16_t kOpcodeReadLocalName = 0x0C14;
inline constexpr uint16_t kOpcodeUpdateBaudRate = 0xFC18;
inline constexpr uint16_t kOpcodeSetSleepMode = 0xFC27;
inline constexpr uint16_t kOpcodeDownloadMinidriver = 0xFC2E;
inline constexpr uint16_t kOpcodeLaunchRam = 0xFC4E;
inline constexpr uint16_t kOpcodeReadVerboseConfig = 0xFC79;
inline constexpr uint16_t kOpcodeCheckOtp = 0xFE2F;
inline constexpr uint16_t kOpcodeSetDownloadConfig = 0xFE72;

// Statuses of our own making; they share the controller's number space and mean failure like any other non-zero status.
inline constexpr uint8_t kStatusNoFlowControl = 2;
inline constexpr uint8_t kStatusTimedOut = 3;

// Sends a command with `length` bytes of `params` (may be null for 0) and waits at most two seconds for its Command
// Complete. Returns the controller's status byte (0: success), kStatusNoFlowControl when `flow` is null and nothing was
// sent, kStatusTimedOut when no answer came or the flow control was halted. One command waits at a time.
uint8_t btqnl_send_command_wait_complete(hci::HciFlowControl* flow, uint16_t opcode, uint8_t length,
                                         const uint8_t* params);

// Sends a command that the controller does not complete. Does nothing but complain when `flow` is null.
void btqnl_send_command_no_wait(hci::HciFlowControl* flow, uint16_t opcode, uint8_t length, const uint8_t* params);

// A copy of the Command Complete that ended the last wait; empty if it was not for `opcode` or none came.
hci::HciPacket btqnl_last_command_complete(uint16_t opcode);

}  // namespace android::hardware::bluetooth
