// Clients of the HAL: what a stack does, in the test's process and in one that can be killed.
#pragma once

#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <android/binder_manager.h>
#include <sys/types.h>

#include <android-base/unique_fd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace bthal::test {

using Bytes = std::vector<uint8_t>;

// Keeps what it is told. Made with ndk::SharedRefBase::make.
class RecordingCallbacks : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
 public:
  using Status = ::aidl::android::hardware::bluetooth::Status;
  // What is done with a packet or status from inside the call that brings it.
  using Reaction = std::function<void(const Bytes&)>;
  using StatusReaction = std::function<void(Status)>;

  ndk::ScopedAStatus aclDataReceived(const Bytes& data) override;
  ndk::ScopedAStatus hciEventReceived(const Bytes& event) override;
  ndk::ScopedAStatus initializationComplete(Status status) override;
  ndk::ScopedAStatus isoDataReceived(const Bytes& data) override;
  ndk::ScopedAStatus scoDataReceived(const Bytes& data) override;

  std::vector<Status> Statuses() const;
  std::vector<Bytes> Events() const;
  std::vector<Bytes> Acl() const;
  std::vector<Bytes> Sco() const;
  std::vector<Bytes> Iso() const;
  // Wait for one that came at any time; false after 20 s.
  bool WaitForStatus(Status status) const;
  bool WaitForEvent(const Bytes& event) const;

  void OnEvent(Reaction reaction);
  void OnStatus(StatusReaction reaction);
  // Whether the calls from now on fail.
  void Fail(bool fail);

 private:
  ndk::ScopedAStatus Keep(std::vector<Bytes>& kind, const Bytes& packet);

  mutable std::mutex mutex_;
  std::vector<Status> statuses_;
  std::vector<Bytes> events_;
  std::vector<Bytes> acl_;
  std::vector<Bytes> sco_;
  std::vector<Bytes> iso_;
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
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;
  ~ClientProcess();

  // Calls initialize and returns what initializationComplete was told; -1 if the call failed, -2 if nothing was told.
  int Initialize();
  bool Close();
  // From now on never returns from hciEventReceived; the second waits until it is there, false if that takes for ever.
  void BlockInNextEvent();
  bool WaitUntilBlocked();

  void Kill();
  pid_t pid() const { return pid_; }

 private:
  int Order(char order);

  pid_t pid_ = -1;
  android::base::unique_fd orders_;
};

}  // namespace bthal::test
