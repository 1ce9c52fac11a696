#include "support/hal_client.h"

#include <android/binder_process.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <android-base/file.h>

#include "support/wait_for.h"

namespace bthal::test {
namespace {

using ::aidl::android::hardware::bluetooth::IBluetoothHci;

template <typename T>
bool Contains(const std::vector<T>& all, const T& one) {
  return std::find(all.begin(), all.end(), one) != all.end();
}

// The client process's side of the orders.
class OrderedClient {
 public:
  explicit OrderedClient(int orders) : orders_(orders) {}

  [[noreturn]] void Serve() {
    char order = 0;
    while (TEMP_FAILURE_RETRY(read(orders_, &order, 1)) == 1) {
      const int outcome = Obey(order);
      if (TEMP_FAILURE_RETRY(write(orders_, &outcome, sizeof(outcome))) != sizeof(outcome)) break;
    }
    _exit(0);
  }

 private:
  int Obey(char order) {
    if (order == 'i') return Initialize();
    if (order == 'b') callbacks_->OnEvent([this](const Bytes&) { Block(); });
    if (order == 'c') return hal_ != nullptr && hal_->close().isOk() ? 1 : 0;
    return 0;
  }

  int Initialize() {
    ABinderProcess_startThreadPool();
    hal_ = FindService<IBluetoothHci>();
    if (hal_ == nullptr || !hal_->initialize(callbacks_).isOk()) return -1;
    const auto statuses = callbacks_->Statuses();
    return statuses.empty() ? -2 : static_cast<int>(statuses.back());
  }

  [[noreturn]] void Block() {
    const int blocked = 1;
    (void)!write(orders_, &blocked, sizeof(blocked));
    while (true) pause();
  }

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

ndk::ScopedAStatus RecordingCallbacks::aclDataReceived(const Bytes& data) { return Keep(acl_, data); }
ndk::ScopedAStatus RecordingCallbacks::isoDataReceived(const Bytes& data) { return Keep(iso_, data); }
ndk::ScopedAStatus RecordingCallbacks::scoDataReceived(const Bytes& data) { return Keep(sco_, data); }

ndk::ScopedAStatus RecordingCallbacks::hciEventReceived(const Bytes& event) {
  ndk::ScopedAStatus status = Keep(events_, event);
  Reaction reaction;
  {
    const std::lock_guard lock(mutex_);
    reaction = on_event_;
  }
  if (reaction) reaction(event);
  return status;
}

ndk::ScopedAStatus RecordingCallbacks::initializationComplete(Status status) {
  StatusReaction reaction;
  {
    const std::lock_guard lock(mutex_);
    statuses_.push_back(status);
    reaction = on_status_;
  }
  if (reaction) reaction(status);
  return ndk::ScopedAStatus::ok();
}

std::vector<RecordingCallbacks::Status> RecordingCallbacks::Statuses() const {
  const std::lock_guard lock(mutex_);
  return statuses_;
}

std::vector<Bytes> RecordingCallbacks::Events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

std::vector<Bytes> RecordingCallbacks::Acl() const {
  const std::lock_guard lock(mutex_);
  return acl_;
}

std::vector<Bytes> RecordingCallbacks::Sco() const {
  const std::lock_guard lock(mutex_);
  return sco_;
}

std::vector<Bytes> RecordingCallbacks::Iso() const {
  const std::lock_guard lock(mutex_);
  return iso_;
}

bool RecordingCallbacks::WaitForStatus(Status status) const {
  return WaitFor([&] { return Contains(Statuses(), status); });
}

bool RecordingCallbacks::WaitForEvent(const Bytes& event) const {
  return WaitFor([&] { return Contains(Events(), event); });
}

void RecordingCallbacks::OnEvent(Reaction reaction) {
  const std::lock_guard lock(mutex_);
  on_event_ = std::move(reaction);
}

void RecordingCallbacks::OnStatus(StatusReaction reaction) {
  const std::lock_guard lock(mutex_);
  on_status_ = std::move(reaction);
}

void RecordingCallbacks::Fail(bool fail) {
  const std::lock_guard lock(mutex_);
  fail_ = fail;
}

std::string ReportOf(::aidl::android::hardware::bluetooth::IBluetoothHci& hal) {
  FILE* const file = tmpfile();
  hal.dump(fileno(file), nullptr, 0);
  rewind(file);
  std::string text;
  android::base::ReadFdToString(fileno(file), &text);
  fclose(file);
  return text;
}

ClientProcess::ClientProcess() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("cannot make socketpair");
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(ends[0]);
    OrderedClient(ends[1]).Serve();
  }
  close(ends[1]);
  orders_.reset(ends[0]);
}

ClientProcess::~ClientProcess() { Kill(); }

int ClientProcess::Order(char order) {
  int outcome = -1;
  if (TEMP_FAILURE_RETRY(send(orders_.get(), &order, 1, MSG_NOSIGNAL)) != 1) return -1;
  if (TEMP_FAILURE_RETRY(read(orders_.get(), &outcome, sizeof(outcome))) != sizeof(outcome)) return -1;
  return outcome;
}

int ClientProcess::Initialize() { return Order('i'); }

bool ClientProcess::Close() { return Order('c') == 1; }

void ClientProcess::BlockInNextEvent() { Order('b'); }

bool ClientProcess::WaitUntilBlocked() {
  int blocked = 0;
  return TEMP_FAILURE_RETRY(read(orders_.get(), &blocked, sizeof(blocked))) == sizeof(blocked) && blocked == 1;
}

void ClientProcess::Kill() {
  if (pid_ < 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace bthal::test
