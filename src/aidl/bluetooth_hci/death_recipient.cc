#define LOG_TAG "bthal.aidl.qnlbtlinux"

#include "aidl/bluetooth_hci/death_recipient.h"

#include <android-base/logging.h>
#include <android/binder_ibinder.h>

#include "aidl/bluetooth_hci/bluetooth_hci.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

void OnDeath(void* cookie) { static_cast<BluetoothDeathRecipient*>(cookie)->serviceDied(); }

}  // namespace

void BluetoothDeathRecipient::linkToDeath(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  {
    // Together, so that the late notice of an earlier client finds this living one.
    const std::lock_guard lock(mutex_);
    mCb = cb;
    has_died_ = false;
  }
  death_recipient_ = ::ndk::ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient_new(OnDeath));
  const binder_status_t linkToDeathReturnStatus =
      AIBinder_linkToDeath(cb->asBinder().get(), death_recipient_.get(), this);
  if (linkToDeathReturnStatus != STATUS_OK) LOG(FATAL) << "Unable to link to death recipient";
}

void BluetoothDeathRecipient::unlinkToDeath(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  {
    const std::lock_guard lock(mutex_);
    if (cb != mCb) LOG(FATAL) << "Unable to unlink mismatched pointers";
  }
  const binder_status_t unlinkToDeathReturnStatus =
      AIBinder_unlinkToDeath(cb->asBinder().get(), death_recipient_.get(), this);
  // A client that dies right after its close is no error of ours: its notice is under way and will find nothing to do.
  if (unlinkToDeathReturnStatus == STATUS_DEAD_OBJECT) return;
  if (unlinkToDeathReturnStatus != STATUS_OK) LOG(FATAL) << "Unable to unlink to death recipient";
}

bool BluetoothDeathRecipient::has_died() const {
  const std::lock_guard lock(mutex_);
  return has_died_;
}

void BluetoothDeathRecipient::serviceDied() {
  std::shared_ptr<IBluetoothHciCallbacks> dead;
  {
    const std::lock_guard lock(mutex_);
    if (mCb == nullptr || AIBinder_isAlive(mCb->asBinder().get())) {
      LOG(ERROR) << "BluetoothDeathRecipient::serviceDied called but service not dead";
      return;
    }
    if (has_died_) return;
    has_died_ = true;
    dead = mCb;
  }
  LOG(ERROR) << "BluetoothDeathRecipient::serviceDied - Bluetooth service died";
  hci_->OnClientDied(dead);
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
