// The one door of the Bluetooth stack to the controller.
#pragma once

#include <aidl/android/hardware/bluetooth/BnBluetoothHci.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "aidl/bluetooth_hci/death_recipient.h"
#include "aidl/bluetooth_hci/lifecycle_lock.h"
#include "hci_flow_control/hci_flow_control.h"
#include "os/thread.h"

namespace vendor::tovani::bluetooth_ext::finder::aidl::implementation {
class BluetoothFinder;
}
namespace android::hardware::bluetooth::activitywatcher {
class ControllerActivityWatcher;
}
namespace android::hardware::bluetooth::hci {
class ThreadDispatcher;
}

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// Serves one client at a time; one instance a process. The Binder methods may be called from any thread, also from
// inside a callback to the client.
//
// Opening and closing take turns (lifecycle_): initialize, close, the client's death, the background bring-up, the
// termination steps, and the coexistence driver's reset, which does not wait for its turn. The turn is given away while
// the client is called. Sending waits for nothing of this.
class BluetoothHci : public ::aidl::android::hardware::bluetooth::BnBluetoothHci {
 public:
  using IBluetoothHciCallbacks = ::aidl::android::hardware::bluetooth::IBluetoothHciCallbacks;

  // With accelerated Bluetooth-on, starts the bring-up at once, in the background.
  BluetoothHci();
  // Closes what is open.
  ~BluetoothHci() override;

  // Returns Ok whatever became of the bring-up: the client learns it through initializationComplete. Service-specific
  // error -22 for null callbacks. A second living client gets ALREADY_INITIALIZED, and the process ends a second later.
  ::ndk::ScopedAStatus initialize(const std::shared_ptr<IBluetoothHciCallbacks>& callbacks) override;

  // EX_ILLEGAL_ARGUMENT for fewer than two bytes. While no client is initialised, or no transport open, a packet is
  // dropped and counted, and that is Ok: whoever has no session cannot disturb a bring-up.
  ::ndk::ScopedAStatus sendHciCommand(const std::vector<uint8_t>& packet) override;
  ::ndk::ScopedAStatus sendAclData(const std::vector<uint8_t>& packet) override;
  ::ndk::ScopedAStatus sendScoData(const std::vector<uint8_t>& packet) override;
  ::ndk::ScopedAStatus sendIsoData(const std::vector<uint8_t>& packet) override;
  // How many this process has dropped so.
  static uint64_t DroppedPackets() { return dropped_packets_; }

  // With accelerated Bluetooth-on the controller stays up and is only reset. Ends the process when no client has ever
  // been initialised, or it has closed already.
  ::ndk::ScopedAStatus close() override;

  // Writes the diagnostic report to `fd`, which stays the caller's.
  binder_status_t dump(int fd, const char** args, uint32_t num_args) override;

  // For the death recipient, on Binder's death thread: `dead` is the client that died.
  void OnClientDied(const std::shared_ptr<IBluetoothHciCallbacks>& dead);

 private:
  using Turn = std::unique_lock<LifecycleLock>;

  // The client's side of opening and closing.
  ::ndk::ScopedAStatus initialize_impl(const std::shared_ptr<IBluetoothHciCallbacks>& cb);
  ::ndk::ScopedAStatus RefuseSecondClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb);
  static void thread_perform_self_kill();
  void EndDeadSession();
  void AbandonDeadCaller(Turn turn);
  void OpenSession(const std::shared_ptr<IBluetoothHciCallbacks>& cb);
  bool PrepareController(Turn& turn);
  void WatchClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb);
  void FinishInitialize();
  ::ndk::ScopedAStatus CloseSession(Turn turn);
  void AcceleratedClose();
  void FinishClose();
  static bool TellClient(Turn& turn, const std::shared_ptr<IBluetoothHciCallbacks>& cb,
                         ::aidl::android::hardware::bluetooth::Status status);

  // The controller's side.
  void StartInitThread(Turn turn, std::function<void(Turn&)> routine);
  void JoinInitThread();
  void thread_perform_init(Turn& turn);
  ::ndk::ScopedAStatus perform_init(Turn& turn);
  ::ndk::ScopedAStatus RefuseDoubleAttempt(Turn& turn);
  hci::HciFlowControl* OpenChannel();
  // False when the client that was told has died meanwhile, and its successor has come.
  bool TellFailedInit(Turn& turn, const char* kill_message, bool record_failed_call);
  void setup_signal_handler();
  bool open_coex_dev();
  void resetBtCallback();
  void FreeTheLine();
  // A client that does not return from a callback is waited for no longer than `patience`.
  void closeHci(std::chrono::milliseconds patience);
  void perform_close();
  void StopThreadDispatcher();

  // The extension services' side.
  void JoinExtensionThread();
  void startVarneHalExtensions();
  void stopVarneHalExtensions();

  // The termination steps, on the termination thread.
  void Terminate(int signum);
  void EnterPoweredOffMode(::vendor::tovani::bluetooth_ext::finder::aidl::implementation::BluetoothFinder& finder);

  void sendDataToController(uint8_t type, const hci::HciPacket& packet);
  std::shared_ptr<hci::HciFlowControl> hci_handle() const;
  void set_hci_handle(hci::HciFlowControl* flow_control);

  const uint8_t command_type_;
  const uint8_t acl_type_;
  const uint8_t sco_type_;
  const uint8_t iso_type_;

  mutable std::mutex handle_mutex_;
  hci::HciHandle hci_handle_;

  std::atomic<bool> serving_{false};  // a client has been initialised and has neither closed nor died
  inline static std::atomic<uint64_t> dropped_packets_{0};

  LifecycleLock lifecycle_;
  // What follows is guarded by lifecycle_.
  bool accelerated_ = false;          // of the open transport, until it is closed
  std::atomic<uint64_t> session_{0};  // counts comings and goings of clients: who waits sees that its own has gone
  std::shared_ptr<IBluetoothHciCallbacks> session_client_;  // null: nobody's session
  std::function<void(BluetoothDeathRecipient&)> unlink_cb_;
  std::shared_ptr<hci::ThreadDispatcher> thread_dispatcher_;  // shared with the transport's callback
  bool thread_dispatcher_started_ = false;
  os::Thread extension_thread_;

  std::mutex init_thread_mutex_;
  os::Thread init_thread_;

  bool thread_dispatcher_enabled_ = false;
  std::shared_ptr<BluetoothDeathRecipient> death_recipient_;
  std::shared_ptr<activitywatcher::ControllerActivityWatcher> activity_watcher_;
};

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
