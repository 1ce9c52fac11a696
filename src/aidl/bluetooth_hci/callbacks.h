// The way up: from the transport to the client.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHciCallbacks.h>

#include <memory>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {
class ThreadDispatcher;
}

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

using ::aidl::android::hardware::bluetooth::IBluetoothHciCallbacks;

// The client's callbacks object, one for the process. The client and the diagnostics' knowledge of it change together.
// Any thread; the small lock behind these is never held while the client is called.
std::shared_ptr<IBluetoothHciCallbacks> ConnectedClient();
void ConnectClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb);
void DisconnectClient();
// Only if `cb` is the client; false if not.
bool DisconnectClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb);

// Whether this thread is inside a call to the client: then a call that the client makes back runs on it, too. The
// receive thread can then read no answer of the controller.
bool IsCallingClient();

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
