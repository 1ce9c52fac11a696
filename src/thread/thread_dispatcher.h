// Bridges Thread radio frames between the controller (H4 type 0x70) and one local client.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include <android-base/unique_fd.h>

#include "hci_flow_control/hci_flow_control.h"
#include "os/thread.h"
#include "thread/socket_processor.h"

namespace android::hardware::bluetooth::hci {

inline constexpr char kThreadDispatcherSocketPath[] = "/data/vendor/bluetooth/thread_dispatcher_socket";

// A frame to or from the controller:
//   00 00 | payload length (2, little-endian) | payload
//
// OnBluetoothEnabled and OnBluetoothDisabled are serialised by the service; SendThreadPacket runs on the receive thread
// and never blocks on the client; OnThreadPacketReady runs on the dispatcher's own thread.
class ThreadDispatcher {
 public:
  explicit ThreadDispatcher(SocketMode mode = SocketMode::kPacket);
  ThreadDispatcher(const ThreadDispatcher&) = delete;
  ThreadDispatcher& operator=(const ThreadDispatcher&) = delete;
  ~ThreadDispatcher();  // stops; not on the dispatcher's own thread

  // Starts the dispatcher's thread, which serves the socket; false when it runs already, cannot be started, or is the
  // caller. A socket that cannot be opened is logged and leaves a dispatcher without clients.
  bool OnBluetoothEnabled(HciFlowControl* flow_control);
  // Stops it: thread, descriptors and socket file are gone when this returns (called on the dispatcher's own thread,
  // when the dispatcher is destroyed or started again). False when it was not running.
  bool OnBluetoothDisabled();

  // A frame from the controller, header included: its payload goes to the client.
  void SendThreadPacket(const HciPacket& frame);
  // A frame from the client. The hardware reset request ends the process.
  void OnThreadPacketReady(const std::vector<uint8_t>& frame);

  // Frames that this process has lost, in either direction: nobody was there for them, a client that read too slowly or
  // was leaving did not get them, or they were larger than a frame may be.
  static uint64_t DroppedFrames() { return SocketProcessor::DroppedFrames(); }

 private:
  bool StartThreadDispatcher();
  void CloseThreadDispatcher();
  void ThreadDispatcherRoutine();
  void ReceiveFromClients();
  void AcceptClient();
  void DropClient();

  HciHandle flow_control_;
  std::atomic<bool> running_{false};
  std::atomic<bool> client_connected_{false};
  os::Thread dispatcher_thread_;
  ::android::base::unique_fd notify_listen_fd_;
  ::android::base::unique_fd notify_write_fd_;
  std::mutex client_mutex_;  // guards the client socket, never held across anything that blocks
  std::mutex enable_mutex_;  // guards flow_control_, and keeps it in force during a send to the controller
  SocketProcessor socket_processor_;
};

}  // namespace android::hardware::bluetooth::hci
