// The one channel to the controller: the path opened, a flow control on it, and how both end. What is opened here is
// all that the components above need to talk to the controller.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "debug_central/debug_central.h"
#include "h4/uart_link.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

class HciFlowControl;

namespace channel {

// Powers the controller, opens the path and makes the process's one flow control. `on_exception` (may be empty) is what
// CatchException calls first. Returns null after undoing what was done. The pointer is the channel's; keep it as an
// HciHandle. Bring-up and teardown run on one thread at a time, except that CatchException may tear the channel down on
// the receive thread.
HciFlowControl* InitializeHciHandle(const Consumers& consumers, std::function<void()> on_exception = nullptr);

// Takes the line away (see shim::TakeLineAway), halts and lets go of the flow control and powers the controller down.
// Harmless when nothing is open. May be called on the receive thread.
void Deinitialize(std::chrono::milliseconds patience = UartLink::kConsumerPatience);

// Power-cycles the controller under the open channel: the new descriptor comes under the flow control, and what was
// outstanding is forgotten. False when the controller is left off.
bool ReopenController();

// Whether a flow control is on an open path.
bool IsInitialized();

// The controller is up. From here on, and until the channel is closed, a port that hangs up is reported at once; so is
// one that did under the last steps, which do without their answers.
void MarkReady();

// The transport failed beyond repair: lets the opener's observer know, reports the error, tears the channel down. What
// the calling receive thread stands on stays alive until its callback returns.
void CatchException(BqrErrorCode code, const std::string& info);

}  // namespace channel
}  // namespace android::hardware::bluetooth::hci
