// The way up: from the transport to the client.
#pragma once

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {
class ThreadDispatcher;
}

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// What the transport calls with each packet from the controller, on the receive thread. With the snoop log on, traffic
// that the controller marks as its own is logged without its mark and kept from the client.
void EventCallback(const hci::HciPacket& packet);
void AclCallback(const hci::HciPacket& packet);
void ScoCallback(const hci::HciPacket& packet);
void IsoCallback(const hci::HciPacket& packet);
void ThreadCallback(const hci::HciPacket& packet, hci::ThreadDispatcher* dispatcher);

// What the diagnostics call with an event of their own making; any thread.
void NotifyCallback(const hci::HciPacket& packet);

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
