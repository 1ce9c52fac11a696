// Notices the death of the client's process.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHciCallbacks.h>
#include <android/binder_auto_utils.h>

#include <memory>
#include <mutex>

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

class BluetoothHci;

// Watches one callbacks object at a time. linkToDeath and unlinkToDeath are serialised by the service; serviceDied
// comes on Binder's death thread at any time, also late, when the client has closed or another one has been linked.
class BluetoothDeathRecipient {
 public:
  using IBluetoothHciCallbacks = ::aidl::android::hardware::bluetooth::IBluetoothHciCallbacks;

  // `hci` owns this object and outlives it.
  explicit BluetoothDeathRecipient(BluetoothHci* hci) : hci_(hci) {}
  BluetoothDeathRecipient(const BluetoothDeathRecipient&) = delete;
  BluetoothDeathRecipient& operator=(const BluetoothDeathRecipient&) = delete;

  // Ends the process when the link cannot be made: such a client is dead already, or none that could be watched.
  void linkToDeath(const std::shared_ptr<IBluetoothHciCallbacks>& cb);
  // Ends the process when `cb` is not the linked one, or its link is gone already.
  void unlinkToDeath(const std::shared_ptr<IBluetoothHciCallbacks>& cb);

  bool has_died() const;

  void serviceDied();

 private:
  BluetoothHci* hci_;
  mutable std::mutex mutex_;  // guards mCb and has_died_
  std::shared_ptr<IBluetoothHciCallbacks> mCb;
  ::ndk::ScopedAIBinder_DeathRecipient death_recipient_;
  bool has_died_ = false;
};

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
