// Clients of the HAL: what a stack does, in the test's process and in one that can be killed.
#pragma once

#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <android/binder_manager.h>

#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {

using HalStatus = ::aidl::android::hardware::bluetooth::Status;

// Keeps what it is told. Made with ndk::SharedRefBase::make.
class RecordingCallbacks : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
 public:
  // What is done with a packet or status from inside the call that brings it.
  using Reaction = std::function<void(const Bytes&)>;
  using StatusReaction = std::function<void(HalStatus)>;

  ndk::ScopedAStatus aclDataReceived(const Bytes& data) override { return Keep(acl_, data); }
  ndk::ScopedAStatus hciEventReceived(const Bytes& event) override;
  ndk::ScopedAStatus initializationComplete(HalStatus status) override;
  ndk::ScopedAStatus isoDataReceived(const Bytes& data) override { return Keep(iso_, data); }
  ndk::ScopedAStatus scoDataReceived(const Bytes& data) override { return Keep(sco_, data); }

  std::vector<HalStatus> Statuses() const { return Copy(statuses_); }
  std::vector<Bytes> Events() const { return Copy(events_); }
  std::vector<Bytes> Acl() const { return Copy(acl_); }
  std::vector<Bytes> Sco() const { return Copy(sco_); }
  std::vector<Bytes> Iso() const { return Copy(iso_); }
  // Wait for one that came at any time; false after 20 s.
  bool WaitForStatus(HalStatus status) const;
  bool WaitForEvent(const Bytes& event) const;

  void OnEvent(Reaction reaction) { Set(on_event_, std::move(reaction)); }
  void OnStatus(StatusReaction reaction) { Set(on_status_, std::move(reaction)); }
  // Whether the calls from now on fail.
  void Fail(bool fail) { Set(fail_, fail); }

 private:
  ndk::ScopedAStatus Keep(std::vector<Bytes>& kind, const Bytes& packet);
  template <typename T>
  T Copy(const T& member) const {
    const std::lock_guard lock(mutex_);
    return member;
  }
  template <typename T>
  void Set(T& member, T value) {
    const std::lock_guard lock(mutex_);
    member = std::move(value);
  }

  mutable std::mutex mutex_;
  std::vector<HalStatus> statuses_;
  std::vector<Bytes> events_, acl_, sco_, iso_;
  Reaction on_event_;
  StatusReaction on_status_;
  bool fail_ = false;
};

// A service of the process that runs on the root in force, by its interface; null when there is none.
template <typename Interface>
std::shared_ptr<Interface> FindService() {
  const std::string instance = std::string(Interface::descriptor) + "/default";
  return Interface::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
}

// The diagnostic report as the service hands it out.
std::string ReportOf(::aidl::android::hardware::bluetooth::IBluetoothHci& hal);

// A client in a process of its own. To be constructed before the test's process has threads or has used Binder; it
// waits for orders, and is killed on destruction. The orders wait for their outcome.
class ClientProcess {
 public:
  ClientProcess();

  // Calls initialize and returns what initializationComplete was told; -1 if the call failed, -2 if nothing was told.
  int Initialize() { return Order('i'); }
  // From now on never returns from hciEventReceived; the second waits until it is there, false if that takes for ever.
  void BlockInNextEvent() { Order('b'); }
  bool WaitUntilBlocked() { return Outcome() == 1; }

  void Kill() { process_->Kill(); }

 private:
  int Order(char order);
  int Outcome() const;

  unique_fd orders_;
  std::optional<ChildProcess> process_;
};

}  // namespace bthal::test
