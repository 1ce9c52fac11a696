#include "support/hal_client.h"

#include <android/binder_process.h>
#include <sys/mman.h>

namespace bthal::test {
namespace {

using ::aidl::android::hardware::bluetooth::IBluetoothHci;

// The client process's side of the orders.
class OrderedClient {
 public:
  explicit OrderedClient(int orders) : orders_(orders) {}

  int Serve() {
    char order = 0;
    while (TEMP_FAILURE_RETRY(read(orders_, &order, 1)) == 1) Tell(Obey(order));
    return 0;
  }

 private:
  int Obey(char order) {
    if (order == 'i') return Initialize();
    callbacks_->OnEvent([this](const Bytes&) {
      Tell(1);
      while (true) pause();
    });
    return 0;
  }

  int Initialize() {
    ABinderProcess_startThreadPool();
    hal_ = FindService<IBluetoothHci>();
    if (hal_ == nullptr || !hal_->initialize(callbacks_).isOk()) return -1;
    const auto statuses = callbacks_->Statuses();
    return statuses.empty() ? -2 : static_cast<int>(statuses.back());
  }

  void Tell(int outcome) const { (void)!write(orders_, &outcome, sizeof(outcome)); }

  int orders_;
  std::shared_ptr<RecordingCallbacks> callbacks_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  std::shared_ptr<IBluetoothHci> hal_;
};

}  // namespace

ndk::ScopedAStatus RecordingCallbacks::Keep(std::vector<Bytes>& kind, const Bytes& packet) {
  const std::lock_guard lock(mutex_);
  kind.push_back(packet);
  return fail_ ? ndk::ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE) : ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingCallbacks::hciEventReceived(const Bytes& event) {
  ndk::ScopedAStatus status = Keep(events_, event);
  if (const Reaction reaction = Copy(on_event_)) reaction(event);
  return status;
}

ndk::ScopedAStatus RecordingCallbacks::initializationComplete(HalStatus status) {
  {
    const std::lock_guard lock(mutex_);
    statuses_.push_back(status);
  }
  if (const StatusReaction reaction = Copy(on_status_)) reaction(status);
  return Copy(fail_) ? ndk::ScopedAStatus::fromServiceSpecificError(1) : ndk::ScopedAStatus::ok();
}

bool RecordingCallbacks::WaitForStatus(HalStatus status) const {
  return WaitFor([&] { return std::ranges::count(Statuses(), status) != 0; });
}

bool RecordingCallbacks::WaitForEvent(const Bytes& event) const {
  return WaitFor([&] { return std::ranges::count(Events(), event) != 0; });
}

std::string ReportOf(IBluetoothHci& hal) {
  const unique_fd file(memfd_create("report", MFD_CLOEXEC));
  hal.dump(file.get(), nullptr, 0);
  lseek(file.get(), 0, SEEK_SET);
  std::string text;
  android::base::ReadFdToString(file.get(), &text);
  return text;
}

ClientProcess::ClientProcess() {
  unique_fd clients;
  if (!android::base::Socketpair(SOCK_STREAM, &orders_, &clients)) throw std::runtime_error("cannot make socketpair");
  process_.emplace([&] { return OrderedClient(clients.get()).Serve(); });
}

int ClientProcess::Order(char order) {
  if (TEMP_FAILURE_RETRY(send(orders_.get(), &order, 1, MSG_NOSIGNAL)) != 1) return -1;
  return Outcome();
}

int ClientProcess::Outcome() const {
  int outcome = -1;
  if (TEMP_FAILURE_RETRY(read(orders_.get(), &outcome, sizeof(outcome))) != sizeof(outcome)) return -1;
  return outcome;
}

}  // namespace bthal::test
