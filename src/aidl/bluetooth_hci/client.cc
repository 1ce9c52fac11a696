#define LOG_TAG "bthal.aidl.qnlbtlinux"

#include "aidl/bluetooth_hci/client.h"

#include <android-base/logging.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "os/call_batch.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

// So many records at most are left open by a client that does not return from a callback.
constexpr size_t kMaxKept = 16;

// Never destroyed: the receive thread may outlive main().
struct Client {
  std::mutex mutex;
  std::shared_ptr<IBluetoothHciCallbacks> cb;
  std::vector<os::CallBatch*> under_way;  // to `cb`
};

Client& g_cb() {
  static auto& client = *new Client;
  return client;
}

// Whoever is no longer the client hears no more of what is under way to it. With the lock held; waits for nothing.
void AbandonWhatIsUnderWay(Client& client) {
  for (os::CallBatch* batch : client.under_way) batch->Abandon();
  client.under_way.clear();
}

thread_local int t_calls_to_client = 0;

class CallToClient {
 public:
  CallToClient() { ++t_calls_to_client; }
  ~CallToClient() { --t_calls_to_client; }
  CallToClient(const CallToClient&) = delete;
  CallToClient& operator=(const CallToClient&) = delete;
};

// What a receive thread has for the client.
class Gathering {
 public:
  bool keeps() const { return keeps_; }
  void MoreToCome(bool more) {
    if (t_calls_to_client != 0) return;
    if (!more) HandOn();
    keeps_ = more;
  }

  // Returns what calling `cb` has returned, unless the call is kept.
  template <typename F>
  std::optional<::ndk::ScopedAStatus> Call(const std::shared_ptr<IBluetoothHciCallbacks>& cb, F&& function,
                                           Delivery& delivery, DebugAnchor& anchor) {
    if (cb_ != cb) HandOn();
    auto outcome = batch_.Keep(cb->asBinder().get(), std::forward<F>(function));
    if (outcome.has_value()) return outcome;
    cb_ = cb;
    kept_.push_back({std::move(anchor), &delivery});
    if (kept_.size() == kMaxKept) HandOn();
    return std::nullopt;
  }

 private:
  struct Kept {
    DebugAnchor anchor;
    Delivery* delivery;
  };

  void HandOn();
  bool Begin();
  bool End();

  bool keeps_ = false;
  os::CallBatch batch_;
  std::shared_ptr<IBluetoothHciCallbacks> cb_;
  std::vector<Kept> kept_;
};

Gathering& ThisThreadsGathering() {
  thread_local Gathering gathering;
  return gathering;
}

void Gathering::HandOn() {
  if (kept_.empty()) return;
  // Calls that are made from within these go at once.
  const bool keeps = std::exchange(keeps_, false);
  if (!Begin()) batch_.Abandon();
  {
    const CallToClient call;
    const auto& outcomes = batch_.Send();
    const bool still_client = End();
    for (size_t i = 0; i < kept_.size(); ++i) {
      if (!outcomes[i].isOk()) (still_client ? kept_[i].delivery->failed : kept_[i].delivery->missing).Log();
    }
  }
  for (Kept& kept : kept_) const DebugAnchor ends(std::move(kept.anchor));
  kept_.clear();
  cb_ = nullptr;
  keeps_ = keeps;
}

// False when whom the calls are for is not the client any more.
bool Gathering::Begin() {
  Client& client = g_cb();
  const std::lock_guard lock(client.mutex);
  if (client.cb != cb_) return false;
  client.under_way.push_back(&batch_);
  return true;
}

bool Gathering::End() {
  Client& client = g_cb();
  const std::lock_guard lock(client.mutex);
  std::erase(client.under_way, &batch_);
  return client.cb == cb_;
}

// Calls `call` with the packet's bytes as the interface wants them: in a vector, one a thread, unless a call from
// within this one delivers something, too.
template <typename F>
auto WithBytes(const hci::HciPacket& packet, F&& call) {
  thread_local std::vector<uint8_t> kept;
  std::vector<uint8_t> bytes = std::exchange(kept, {});
  bytes.assign(packet.begin(), packet.end());
  auto outcome = call(std::as_const(bytes));
  kept = std::move(bytes);
  return outcome;
}

}  // namespace

void Complaint::Log() { throttle.Log(LOG_TAG, ::android::base::WARNING, text); }

std::shared_ptr<IBluetoothHciCallbacks> ConnectedClient() {
  Client& client = g_cb();
  const std::lock_guard lock(client.mutex);
  return client.cb;
}

void ConnectClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  // What is replaced is released by the local object, after the lock: the last reference to a client may end a
  // connection.
  std::shared_ptr<IBluetoothHciCallbacks> changed = cb;
  Client& client = g_cb();
  const std::lock_guard lock(client.mutex);
  client.cb.swap(changed);
  if (client.cb != changed) AbandonWhatIsUnderWay(client);
  DebugCentral::Get().HasClientConnectWith(client.cb != nullptr);
}

void DisconnectClient() { ConnectClient(nullptr); }

bool DisconnectClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  Client& client = g_cb();
  const std::lock_guard lock(client.mutex);
  if (cb == nullptr || client.cb != cb) return false;
  client.cb.reset();  // not the last reference: the caller holds one
  AbandonWhatIsUnderWay(client);
  DebugCentral::Get().HasClientConnectWith(false);
  return true;
}

bool IsCallingClient() { return t_calls_to_client != 0; }

void Deliver(const hci::HciPacket& packet, Delivery& delivery, DebugAnchor anchor) {
  Gathering& gathering = ThisThreadsGathering();
  if (!gathering.keeps()) return DeliverNow(packet, delivery);
  const auto cb = ConnectedClient();
  if (cb == nullptr) return delivery.missing.Log();
  const auto outcome = WithBytes(packet, [&](const std::vector<uint8_t>& bytes) {
    return gathering.Call(
        cb,
        [&] {
          const CallToClient call;
          return (cb.get()->*delivery.method)(bytes);
        },
        delivery, anchor);
  });
  if (outcome.has_value() && !outcome->isOk()) delivery.failed.Log();
}

void MoreToCome(bool more) { ThisThreadsGathering().MoreToCome(more); }

void DeliverNow(const hci::HciPacket& packet, Delivery& delivery) {
  const auto cb = ConnectedClient();
  if (cb == nullptr) return delivery.missing.Log();
  const CallToClient call;
  const auto outcome =
      WithBytes(packet, [&](const std::vector<uint8_t>& bytes) { return (cb.get()->*delivery.method)(bytes); });
  if (!outcome.isOk()) delivery.failed.Log();
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
