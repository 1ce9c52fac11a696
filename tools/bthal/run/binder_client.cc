#include "bthal/run/binder_client.h"

#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "bthal/hci/words.h"
#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/run/service_calls.h"

namespace bthal::tool {
namespace {

using ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks;
using ::aidl::android::hardware::bluetooth::IBluetoothHci;
using ::aidl::android::hardware::bluetooth::Status;
using ::android::base::StringPrintf;
using std::chrono::milliseconds;

constexpr milliseconds kPoll{5};
constexpr char kCannotTake[] = "cannot take the HAL";

}  // namespace

// What has come from the service. Outlives the client as long as the service may still call.
class HciClient::Inbox {
 public:
  explicit Inbox(Observer observer) : observer_(std::move(observer)) {}

  void Put(uint8_t kind, const std::vector<uint8_t>& bytes) {
    ReceivedPacket packet{kind, bytes};
    observer_.on_packet(packet);
    const std::lock_guard lock(mutex_);
    spoken_to_ = true;
    if (!observer_.keep_packets) return;
    packets_.push_back(std::move(packet));
    changed_.notify_all();
  }

  void PutStatus(Status status) {
    const std::lock_guard lock(mutex_);
    spoken_to_ = true;
    status_ = status;
    changed_.notify_all();
  }

  std::optional<Status> TakeStatus() {
    const std::lock_guard lock(mutex_);
    return std::exchange(status_, std::nullopt);
  }

  void PutDeath() {
    {
      // First of all: whoever reads that it has died may ask for its successor at once.
      const std::lock_guard lock(mutex_);
      died_ = true;
      if (left_) return;
      telling_ = true;
    }
    observer_.on_death();
    const std::lock_guard lock(mutex_);
    telling_ = false;
    changed_.notify_all();
  }

  // Whether it comes, and has been told.
  bool AwaitDeath(milliseconds patience) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [this] { return died_ && !telling_; });
  }

  // The observer hears of no death any more, and has heard all of one that was being told.
  void Leave() {
    std::unique_lock lock(mutex_);
    left_ = true;
    changed_.wait(lock, [this] { return !telling_; });
  }

  bool died() const {
    const std::lock_guard lock(mutex_);
    return died_;
  }

  bool spoken_to() const {
    const std::lock_guard lock(mutex_);
    return spoken_to_;
  }

  void Forget() {
    const std::lock_guard lock(mutex_);
    packets_.clear();
  }

  std::optional<ReceivedPacket> Take(const std::function<bool(const ReceivedPacket&)>& wanted, milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::unique_lock lock(mutex_);
    for (;;) {
      for (auto packet = packets_.begin(); packet != packets_.end(); ++packet) {
        if (!wanted(*packet)) continue;
        ReceivedPacket found = std::move(*packet);
        packets_.erase(packet);
        return found;
      }
      const auto now = std::chrono::steady_clock::now();
      if (died_ || Interrupted() || now >= deadline) return std::nullopt;
      // A signal handler cannot notify a condition, so look after it now and then.
      changed_.wait_until(lock, std::min(deadline, now + kPoll));
    }
  }

 private:
  const Observer observer_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<ReceivedPacket> packets_;
  std::optional<Status> status_;
  bool died_ = false;
  bool telling_ = false;  // of the death
  bool left_ = false;
  bool spoken_to_ = false;
};

class HciClient::Callbacks : public BnBluetoothHciCallbacks {
 public:
  explicit Callbacks(std::shared_ptr<Inbox> inbox) : inbox_(std::move(inbox)) {}

  ::ndk::ScopedAStatus aclDataReceived(const std::vector<uint8_t>& data) override { return Put(kAclData, data); }
  ::ndk::ScopedAStatus hciEventReceived(const std::vector<uint8_t>& event) override { return Put(kEvent, event); }
  ::ndk::ScopedAStatus isoDataReceived(const std::vector<uint8_t>& data) override { return Put(kIsoData, data); }
  ::ndk::ScopedAStatus scoDataReceived(const std::vector<uint8_t>& data) override { return Put(kScoData, data); }
  ::ndk::ScopedAStatus initializationComplete(Status status) override {
    inbox_->PutStatus(status);
    return ::ndk::ScopedAStatus::ok();
  }

 private:
  ::ndk::ScopedAStatus Put(uint8_t kind, const std::vector<uint8_t>& packet) {
    inbox_->Put(kind, packet);
    return ::ndk::ScopedAStatus::ok();
  }

  const std::shared_ptr<Inbox> inbox_;
};

// The service as this process sees it, with the link that tells of its death.
class HciClient::Service {
 public:
  Service(std::shared_ptr<IBluetoothHci> hci, const std::shared_ptr<Inbox>& inbox)
      : hci_(std::move(hci)), recipient_(AIBinder_DeathRecipient_new(OnDied)) {
    AIBinder_DeathRecipient_setOnUnlinked(recipient_.get(), OnUnlinked);
    auto* cookie = new std::shared_ptr<Inbox>(inbox);
    if (AIBinder_linkToDeath(hci_->asBinder().get(), recipient_.get(), cookie) != STATUS_OK) inbox->PutDeath();
  }

  const std::shared_ptr<IBluetoothHci>& hci() const { return hci_; }

 private:
  // The cookie is a shared pointer of its own on the heap: a death may be told while the client is being destroyed.
  static void OnDied(void* cookie) { (*static_cast<std::shared_ptr<Inbox>*>(cookie))->PutDeath(); }
  static void OnUnlinked(void* cookie) { delete static_cast<std::shared_ptr<Inbox>*>(cookie); }

  std::shared_ptr<IBluetoothHci> hci_;
  ::ndk::ScopedAIBinder_DeathRecipient recipient_;
};

namespace {

// A bring-up takes its time; but a service that does not even say whether it is there is none to wait for.
bool AwaitInitialize(const std::future<::ndk::ScopedAStatus>& done, milliseconds patience, std::string* error) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  bool hangs = false;
  while (!Returns(done, std::min(CallPatience(), patience))) {
    FindService(kHciService, error, &hangs);
    if (!hangs && !Interrupted() && std::chrono::steady_clock::now() < deadline) continue;
    *error = Interrupted() ? "interrupted" : DoesNotAnswer();
    return false;
  }
  return true;
}

}  // namespace

HciClient::HciClient(Observer observer) : observer_(std::move(observer)), inbox_(std::make_shared<Inbox>(observer_)) {}

HciClient::~HciClient() {
  std::string ignored;
  if (initialized_) Close(&ignored);
  inbox_->Leave();
}

bool HciClient::Connect(milliseconds patience, std::string* error) {
  std::shared_ptr<IBluetoothHci> hci;
  bool hangs = false;
  const auto find = [&] {
    hci = IBluetoothHci::fromBinder(FindService(kHciService, error, &hangs));
    return hci != nullptr || hangs;
  };
  if (!WaitUntil(find, patience) || hci == nullptr) return false;
  initialized_ = false;
  inbox_ = std::make_shared<Inbox>(observer_);
  service_ = std::make_unique<Service>(std::move(hci), inbox_);
  return true;
}

bool HciClient::Initialize(milliseconds patience, std::string* error) {
  died_unheard_ = false;
  std::future<::ndk::ScopedAStatus> done = BeginCall<::ndk::ScopedAStatus>(
      [hci = service_->hci(), callbacks = ::ndk::SharedRefBase::make<Callbacks>(inbox_)] {
        return hci->initialize(callbacks);
      });
  if (!AwaitInitialize(done, patience, error)) return false;
  const ::ndk::ScopedAStatus called = done.get();
  died_unheard_ = called.getStatus() == STATUS_DEAD_OBJECT && !inbox_->spoken_to();
  if (!CallWorked(called, kCannotTake, error)) return false;
  std::optional<Status> status;
  WaitUntil([&] { return (status = inbox_->TakeStatus()) || inbox_->died(); }, patience);
  if (!status) {
    *error = kCannotTake + std::string(": the service ") + (inbox_->died() ? "has died" : "does not say how it went");
    return false;
  }
  initialized_ = *status == Status::SUCCESS;
  if (!initialized_) *error = kCannotTake + std::string(": the service reports ") + toString(*status);
  return initialized_;
}

bool HciClient::Close(std::string* error) {
  initialized_ = false;
  // Also when the user has asked for the end: the next client shall find all in order.
  constexpr milliseconds kLastPatience = std::chrono::seconds(3);
  std::future<::ndk::ScopedAStatus> done =
      BeginCall<::ndk::ScopedAStatus>([hci = service_->hci()] { return hci->close(); });
  if (!Returns(done, CallPatience()) &&
      !(Interrupted() && done.wait_for(std::min(kLastPatience, CallPatience())) == std::future_status::ready)) {
    *error = DoesNotAnswer();
    return false;
  }
  return CallWorked(done.get(), "cannot give the HAL back", error);
}

bool HciClient::Send(uint8_t kind, const std::vector<uint8_t>& packet, std::string* error) {
  const auto send = kind == kCommand   ? &IBluetoothHci::sendHciCommand
                    : kind == kAclData ? &IBluetoothHci::sendAclData
                    : kind == kScoData ? &IBluetoothHci::sendScoData
                    : kind == kIsoData ? &IBluetoothHci::sendIsoData
                                       : nullptr;
  if (send == nullptr) {
    *error = "a client cannot send a packet of type " + KindWord(kind);
    return false;
  }
  bool hangs = true;
  const bool sent =
      CallWorks([=, hci = service_->hci()] { return ((*hci).*send)(packet); }, "cannot send the packet", error, &hangs);
  // It would not take the HAL back either.
  if (hangs) initialized_ = false;
  return sent;
}

std::optional<ReceivedPacket> HciClient::Take(const std::function<bool(const ReceivedPacket&)>& wanted,
                                              milliseconds patience) {
  return inbox_->Take(wanted, patience);
}

void HciClient::Forget() { inbox_->Forget(); }

bool HciClient::ServiceDied() const { return inbox_->died(); }

bool HciClient::AwaitDeath() {
  constexpr milliseconds kNotice = std::chrono::seconds(2);
  return !AIBinder_isAlive(service_->hci()->asBinder().get()) && inbox_->AwaitDeath(kNotice);
}

// It goes to memory first: whoever asked gets all of it, or nothing.
bool DumpService(std::string* report, std::string* error) {
  const ::ndk::SpAIBinder binder = FindService(kHciService, error);
  if (binder.get() == nullptr) return false;
  const auto memory = std::make_shared<::android::base::unique_fd>(memfd_create("report", MFD_CLOEXEC));
  const std::function<binder_status_t()> dump = [=] { return AIBinder_dump(binder.get(), memory->get(), nullptr, 0); };
  const std::optional<binder_status_t> status = Called(dump, error);
  if (!status) return false;
  if (*status != STATUS_OK) {
    *error = *status == STATUS_DEAD_OBJECT ? "the service died before its report was whole"
                                           : StringPrintf("the service did not report (status %d)", *status);
  } else if (lseek(memory->get(), 0, SEEK_SET) != 0 || !::android::base::ReadFdToString(*memory, report)) {
    *error = StringPrintf("cannot read the report: %s", strerror(errno));
  }
  return error->empty();
}

}  // namespace bthal::tool
