#define LOG_TAG "coex_device"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <signal.h>

#include <chrono>
#include <utility>

#include "coex_device/coex_device.h"
#include "coex_device/session.h"
#include "debug_central/debug_central.h"
#include "os/thread_timer.h"

namespace android::hardware::bluetooth::coex_device {
namespace {

using ::android::base::StringPrintf;

constexpr std::chrono::seconds kCloseTimeout(1);

}  // namespace

void CoexDevice::ClosePollThread() {
  LOG(INFO) << "ClosePollThread";
  std::shared_ptr<PollSession> session;
  os::Thread thread;
  {
    const std::lock_guard lock(mutex_);
    session = std::exchange(session_, nullptr);
    if (session != nullptr) session->running = false;
    thread = std::move(thread_);
  }
  // After a big hammer this is the poll thread itself: it cannot wait for its own end, and nobody else will.
  const bool own_thread = thread.IsCurrent();
  std::unique_ptr<os::ThreadTimer> watchdog;
  // Without a session it has left its loop by itself.
  if (session != nullptr && thread.joinable() && !own_thread)
    watchdog = coex_close_timer_setup(session, thread.native_handle());
  CloseSockets();
  if (!thread.joinable()) return;
  LOG(INFO) << "ClosePollThread: pthread_join";
  if (own_thread) {
    thread.detach();
  } else {
    thread.join();
  }
}

void CoexDevice::CloseSockets() {
  base::unique_fd sender;
  {
    const std::lock_guard lock(mutex_);
    sender = std::move(wake_sender_);
  }
  if (!sender.ok()) return;
  LOG(INFO) << "ClosePollThread: close socket fds_1";
  DebugCentral::Get().UpdateRecord(AnchorType::kCoexCloseSecondSocket,
                                   StringPrintf("%s, close socket fds_1", "ClosePollThread"));
  sender.reset();
  // The end that the thread polls is closed once the thread has left it: before, its number could already be another's.
  LOG(INFO) << "ClosePollThread: close socket fds_0";
  DebugCentral::Get().UpdateRecord(AnchorType::kCoexCloseFirstSocket,
                                   StringPrintf("%s, close socket fds_0", "ClosePollThread"));
}

std::unique_ptr<os::ThreadTimer> CoexDevice::coex_close_timer_setup(const std::shared_ptr<PollSession>& session,
                                                                    pthread_t thread) {
  auto timer = os::ThreadTimer::Create("bt_coex_close", [session, thread] { coex_close_timeout(*session, thread); });
  if (timer == nullptr) {
    LOG(ERROR) << StringPrintf("coex_close_timer_setup: cannot create coex_close_timer, ret:%d", errno);
  } else if (!timer->Arm(kCloseTimeout, std::chrono::milliseconds(0))) {
    LOG(ERROR) << StringPrintf("coex_close_timer_setup: Failed to set coex_close_timer, ret:%d", errno);
  }
  return timer;
}

void CoexDevice::coex_close_timeout(PollSession& session, pthread_t thread) {
  {
    const std::lock_guard lock(session.mutex);
    if (session.done) return;
  }
  LOG(ERROR) << "coex_close_timeout";
  DebugCentral::Get().UpdateRecord(AnchorType::kCoexThreadStuck,
                                   StringPrintf("%s: PollEventThread Stuck!", "coex_close_timeout"));
  // Not done under the mutex means not ended, so that the identifier is still the thread's. One that has not come so
  // far as to set its handler is merely late, and will find that it is to stop.
  const std::lock_guard lock(session.mutex);
  if (session.forcible && !session.done) pthread_kill(thread, SIGUSR1);
}

}  // namespace android::hardware::bluetooth::coex_device
