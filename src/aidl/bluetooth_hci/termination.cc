#define LOG_TAG "bthal.aidl.qnlbtlinux"

#include "aidl/bluetooth_hci/termination.h"

#include <signal.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <utility>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_pof.h"
#include "btqnl_protocol/btqnl_protocol.h"
#include "debug_central/debug_central.h"
#include "hci_flow_control/hci_channel.h"
#include "os/kill_self.h"
#include "os/thread.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using ::android::base::StringPrintf;

using ::vendor::tovani::bluetooth_ext::finder::aidl::implementation::BluetoothFinder;

// The one thing that the signal handler touches: written before the handler is installed, then only read.
std::atomic<int> g_wake_fd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

void signal_handler(int /*signum*/) {
  const int saved_errno = errno;
  const uint64_t one = 1;
  // The counter cannot overflow and the write of eight bytes cannot be partial.
  [[maybe_unused]] const ssize_t written = write(g_wake_fd, &one, sizeof(one));
  errno = saved_errno;
}

// Never destroyed: its thread lives as long as the process.
class TerminationThread {
 public:
  static TerminationThread& Get() {
    static auto& thread = *new TerminationThread;
    return thread;
  }

  // Never waits: the steps that run wait for the lock under which new ones are set.
  void SetSteps(std::function<void(int)> steps) {
    const std::lock_guard lock(steps_mutex_);
    steps_ = std::move(steps);
  }

  void WaitForSteps() { const std::lock_guard lock(running_mutex_); }

  bool ready() const { return wake_fd_.ok(); }

 private:
  TerminationThread() : wake_fd_(eventfd(0, EFD_CLOEXEC)) {
    if (!ready()) {
      LOG(ERROR) << StringPrintf("TerminationThread: eventfd failed: %s (%d)", strerror(errno), errno);
      return;
    }
    g_wake_fd = wake_fd_.get();
    thread_ = os::Thread::StartOrDie("bt_sigterm", [this] { Routine(); });
  }

  void Routine() {
    uint64_t count = 0;
    while (TEMP_FAILURE_RETRY(read(wake_fd_.get(), &count, sizeof(count))) == sizeof(count)) {
      const std::lock_guard running(running_mutex_);
      if (const auto steps = Steps()) steps(SIGTERM);
    }
  }

  std::function<void(int)> Steps() {
    const std::lock_guard lock(steps_mutex_);
    return steps_;
  }

  ::android::base::unique_fd wake_fd_;
  std::mutex running_mutex_;  // held while the steps run
  std::mutex steps_mutex_;    // guards steps_
  std::function<void(int)> steps_;
  os::Thread thread_;
};

}  // namespace

TerminationDeadline::TerminationDeadline(std::chrono::milliseconds limit)
    : timer_(os::ThreadTimer::Create("bt_deadline", [limit] {
        LOG(ERROR) << StringPrintf("TerminationDeadline: not done after %lld ms, killing the process",
                                   static_cast<long long>(limit.count()));
        os::KillSelf();
      })) {
  if (timer_ == nullptr || !timer_->Arm(limit, std::chrono::milliseconds(0))) {
    LOG(ERROR) << StringPrintf("TerminationDeadline: nothing will watch it: %s (%d)", strerror(errno), errno);
  }
}

void HandleSigterm(std::function<void(int signum)> steps) {
  TerminationThread& thread = TerminationThread::Get();
  if (!thread.ready()) return;  // SIGTERM keeps its default action
  thread.SetSteps(std::move(steps));
  struct sigaction action {};
  action.sa_handler = signal_handler;
  if (sigaction(SIGTERM, &action, nullptr) != 0) {
    LOG(ERROR) << StringPrintf("HandleSigterm: sigaction failed: %s (%d)", strerror(errno), errno);
  }
}

void ForgetSigterm() {
  if (g_wake_fd < 0) return;  // never asked for
  TerminationThread::Get().SetSteps(nullptr);
  TerminationThread::Get().WaitForSteps();
}

void BluetoothHci::Terminate(int signum) {
  LOG(WARNING) << StringPrintf("%s: Caught Signal! signum: %d", "signal_handler", signum);
  const TerminationDeadline deadline(kTerminationLimit);
  BluetoothFinder* finder = BluetoothFinder::GetInstance();
  if (finder != nullptr && finder->IsPoweredOffModeEnabled()) {
    const std::lock_guard lifecycle(lifecycle_);
    EnterPoweredOffMode(*finder);
    return;
  }
  // Whoever has the turn may be waiting for a controller that does not answer. It is not waited for: what it waits for
  // fails under it now, and what it would report of that is not the end that this process has.
  const Turn turn(lifecycle_, std::try_to_lock);
  DebugCentral::Get().HoldReports();
  BtQnlProtocol::GetInstacne().Shutdown();
  hci::channel::Deinitialize(std::chrono::milliseconds(0));
  os::KillSelf();
}

void BluetoothHci::EnterPoweredOffMode(BluetoothFinder& finder) {
  if (accelerated_ && !BtQnlProtocol::GetInstacne().AcceleratedReset()) {
    LOG(ERROR) << "signal_handler: Accelerated Init failed";
    os::KillSelf();
    return;
  }
  VndSnoopLogger::Get().Start();
  if (finder.enterPoweredOffMode()) return;
  VndSnoopLogger::Get().Stop();
  LOG(WARNING) << "Enter powered off mode failed!";
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
