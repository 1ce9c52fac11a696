// The client, and how it gets its packets.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHciCallbacks.h>

#include <memory>

#include "debug_central/debug_central.h"
#include "hci/hci_packet.h"
#include "os/log_throttle.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

using ::aidl::android::hardware::bluetooth::IBluetoothHciCallbacks;

// The client's callbacks object, one for the process. The client and the diagnostics' knowledge of it change together.
// Any thread; the small lock behind these is never held while the client is called. A client that is replaced or
// disconnected while it is being called hears nothing after that call.
std::shared_ptr<IBluetoothHciCallbacks> ConnectedClient();
void ConnectClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb);
void DisconnectClient();
// Only if `cb` is the client; false if not.
bool DisconnectClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb);

// Whether this thread is inside a call to the client: then a call that the client makes back runs on it, too. The
// receive thread can then read no answer of the controller.
bool IsCallingClient();

// A line that a controller which goes on talking would cause with every packet.
struct Complaint {
  const char* const text;
  os::LogThrottle throttle;

  void Log();
};

// How the client gets one kind of packet, and what the log says when the call fails or there is no client. Lives for
// good.
struct Delivery {
  ::ndk::ScopedAStatus (IBluetoothHciCallbacks::*const method)(const std::vector<uint8_t>&);
  Complaint failed;
  Complaint missing;
};

// Calls the client with `packet`, or, between MoreToCome(true) and MoreToCome(false) on this thread, may keep it:
// packets that came together are handed on together, in their order. `anchor` ends when the client has returned.
void Deliver(const hci::HciPacket& packet, Delivery& delivery, DebugAnchor anchor);
void MoreToCome(bool more);

// Calls the client at once; any thread.
void DeliverNow(const hci::HciPacket& packet, Delivery& delivery);

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
