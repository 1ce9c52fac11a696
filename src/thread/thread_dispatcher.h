// Bridges Thread radio frames between the controller (H4 type 0x70) and one local client.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "hci_flow_control.h"
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
  ThreadDispatcher();
  ThreadDispatcher(const ThreadDispatcher&) = delete;
  ThreadDispatcher& operator=(const ThreadDispatcher&) = delete;
  ~ThreadDispatcher();  // stops

  bool OnBluetoothEnabled(HciFlowControl* flow_control);
  bool OnBluetoothDisabled();

  // A frame from the controller, header included: its payload goes to the client.
  void SendThreadPacket(const HciPacket& frame);
  // A frame from the client. The hardware reset request ends the process.
  void OnThreadPacketReady(const std::vector<uint8_t>& frame);

 private:
  void ThreadDispatcherRoutine();

  HciHandle flow_control_;
  std::atomic<bool> running_{false};
  std::atomic<bool> client_connected_{false};
  std::thread dispatcher_thread_;
  int notify_listen_fd_ = -1;
  int notify_write_fd_ = -1;
  std::mutex client_mutex_;
  std::mutex enable_mutex_;
  SocketProcessor socket_processor_;
};

}  // namespace android::hardware::bluetooth::hci
