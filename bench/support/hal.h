// Everything between a client and the wire, for the length of a benchmark: the board in this process, the service in
// its own, and a client that counts.
#pragma once

#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bthal/run/process.h"
#include "sim/board.h"

namespace bthal::bench {

using Bytes = std::vector<uint8_t>;
using ::aidl::android::hardware::bluetooth::IBluetoothHci;
using ::aidl::android::hardware::bluetooth::Status;

class Client : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
 public:
  ndk::ScopedAStatus initializationComplete(Status status) override;
  ndk::ScopedAStatus hciEventReceived(const Bytes& event) override;
  ndk::ScopedAStatus aclDataReceived(const Bytes& data) override;
  ndk::ScopedAStatus scoDataReceived(const Bytes& /*data*/) override { return ndk::ScopedAStatus::ok(); }
  ndk::ScopedAStatus isoDataReceived(const Bytes& /*data*/) override { return ndk::ScopedAStatus::ok(); }

  bool initialized() const { return initialized_; }
  // Events and ACL packets so far.
  uint64_t packets() const { return packets_; }
  // Until there are as many. One thread at a time.
  void WaitFor(uint64_t packets);
  // Called with every event, on the thread that brings it. Set before the client is given to anybody.
  std::function<void(const Bytes&)> on_event;

 private:
  void Count();

  std::atomic<bool> initialized_{false};
  std::atomic<uint64_t> packets_{0};
  std::atomic<uint64_t> awaited_{0};
};

class Hal {
 public:
  // `environment` is the service's, on top of ours. Check error() before anything else.
  explicit Hal(sim::BoardOptions options = {}, std::vector<std::pair<std::string, std::string>> environment = {});
  Hal(const Hal&) = delete;
  Hal& operator=(const Hal&) = delete;
  ~Hal();

  // Empty when all stands.
  const std::string& error() const { return error_; }
  // To be called once.
  void Initialize();

  sim::Board& board() { return *board_; }
  IBluetoothHci& hal() { return *hal_; }
  Client& client() { return *client_; }
  pid_t service() const { return service_.pid(); }

 private:
  std::string error_;
  std::string root_;
  std::shared_ptr<Client> client_ = ndk::SharedRefBase::make<Client>();
  std::unique_ptr<sim::Board> board_;
  tool::Child service_;
  std::shared_ptr<IBluetoothHci> hal_;
};

// A folder of its own, gone at the end.
std::string NewRoot();

}  // namespace bthal::bench
