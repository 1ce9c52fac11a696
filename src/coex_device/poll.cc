#define LOG_TAG "coex_device"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <thread>
#include <utility>

#include "coex_device/coex_device.h"
#include "coex_device/session.h"
#include "debug_central/debug_central.h"

namespace android::hardware::bluetooth::coex_device {
namespace {

using ::android::base::StringPrintf;

// Events from the driver:
//   0x01 | (1) | 0x01 | value (1)
using Event = std::array<uint8_t, 4>;
constexpr size_t kMessageTypeOffset = 0;
constexpr size_t kEventTypeOffset = 2;
constexpr size_t kValueOffset = 3;
constexpr uint8_t kMessageTypeEvent = 1;
constexpr uint8_t kEventTypeWlan = 1;
constexpr uint8_t kBigHammer = 0x42;
constexpr uint8_t kBigHammerWithAck = 0x43;

// Whether this thread is one that SIGUSR1 may end.
thread_local bool t_poll_thread = false;

// Reads one event; 0 or a negative errno.
int ReadMessage(int fd, Event* event) {
  const ssize_t count = TEMP_FAILURE_RETRY(read(fd, event->data(), event->size()));
  if (count < 0) return -errno;
  if (count == 0) return -EIO;
  return static_cast<size_t>(count) == event->size() ? 0 : -EMSGSIZE;
}

// Part of an event is a fault of the moment, and so is a descriptor that has nothing yet.
bool IsLasting(int error) { return error < 0 && error != -EMSGSIZE && error != -EAGAIN; }

}  // namespace

void CoexDevice::CreateThread() {
  const std::lock_guard lock(mutex_);
  thread_ = os::Thread::Start("BT_COEX_THREAD", [this, session = session_] { PollEventThread(*session); });
  if (thread_.joinable()) return;
  LOG(ERROR) << "CreateThread: pthread_create error: " << strerror(errno);
  LOG(ERROR) << "DeviceOpen create PollEventThread failed";
}

// Ending this thread by force unwinds its frames: none may be noexcept.
void CoexDevice::PollEventThread(PollSession& session) {
  AnnouncePollThread(session);
  if (MakeForcible(session)) PollEvents(session);
  LeavePollThread(session);
}

void CoexDevice::AnnouncePollThread(const PollSession& session) const {
  const Descriptor device = DeviceOf(session);
  LOG(INFO) << StringPrintf("PollEventThread: Thread created fd = %d", device == nullptr ? -1 : device->get());
}

bool CoexDevice::MakeForcible(PollSession& session) {
  struct sigaction action {};
  action.sa_handler = sigusr1_handler;
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  if (sigaction(SIGUSR1, &action, nullptr) != 0 || pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr) != 0) {
    LOG(ERROR) << "PollEventThread: Unable to set a SIGUSR1 signal handler";
    return false;
  }
  t_poll_thread = true;
  const std::lock_guard lock(session.mutex);
  session.forcible = true;
  return true;
}

void CoexDevice::PollEvents(PollSession& session) {
  while (session.running) {
    Descriptor device = DeviceOf(session);
    if (device == nullptr) return;
    std::array<pollfd, 2> fds = {{{device->get(), POLLIN, 0}, {session.wake_receiver.get(), 0, 0}}};
    if (TEMP_FAILURE_RETRY(poll(fds.data(), fds.size(), -1)) < 0) {
      LOG(ERROR) << "PollEventThread: Cannot poll for fds: " << strerror(errno);
      return;
    }
    device.reset();  // a big hammer closes the device, and then it has to be closed

    bool lasting_error = false;
    if (fds[0].revents & POLLIN) {
      LOG(INFO) << "PollEventThread: POLLIN";
      lasting_error = IsLasting(ReadEvent(this));
    }
    if (fds[0].revents & (POLLHUP | POLLERR | POLLNVAL)) {  // also when there is something to read at the end
      LOG(ERROR) << "PollEventThread: (POLLHUP | POLLERR)";
      return;
    }
    if (lasting_error) return;
    if (fds[1].revents != 0) {
      LOG(INFO) << "PollEventThread: socket event";
      DebugCentral::Get().UpdateRecord(AnchorType::kCoexSocketEvent,
                                       StringPrintf("%s, socket event", "PollEventThread"));
    }
  }
}

void CoexDevice::LeavePollThread(PollSession& session) {
  Descriptor closing;
  {
    const std::lock_guard lock(mutex_);
    if (session_.get() == &session) {
      closing = std::exchange(device_, nullptr);
      session_ = nullptr;
    }
  }
  closing.reset();
  LOG(INFO) << "PollEventThread: Thread done";
  DebugCentral::Get().UpdateRecord(AnchorType::kCoexThreadDone, StringPrintf("%s: Thread done", "PollEventThread"));
  t_poll_thread = false;
  const std::lock_guard lock(session.mutex);
  session.done = true;
}

int CoexDevice::ReadEvent(CoexDevice* self) {
  Descriptor device = self->device();
  Event event{};
  const int error = device == nullptr ? -EBADF : ReadMessage(device->get(), &event);
  device.reset();
  if (error != 0) {
    LOG(ERROR) << "ReadEvent Cannot read from wlbt driver: " << strerror(-error);
    return error;
  }
  const uint8_t value = event[kValueOffset];
  LOG(INFO) << StringPrintf("ReadEvent Read wlbt driver event: 0x%X", value);
  if (event[kMessageTypeOffset] != kMessageTypeEvent) {
    LOG(ERROR) << "ReadEvent Got unexpected message";
  } else if (event[kEventTypeOffset] != kEventTypeWlan) {
    LOG(ERROR) << "ReadEvent received unknown event";
  } else if (value == kBigHammer || value == kBigHammerWithAck) {
    self->OnBigHammer(value);
  }
  return 0;
}

void CoexDevice::OnBigHammer(uint8_t event) {
  std::function<void()> handler;
  int pause_ms = 0;
  {
    const std::lock_guard lock(mutex_);
    handler = handler_;
    pause_ms = pause_ms_;
  }
  if (handler) handler();
  // From here on it is bound to end the process: a close that waits for it does not end it before.
  t_poll_thread = false;
  LOG(INFO) << StringPrintf("ReadEvent Sleep : %d ms", pause_ms);
  std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
  if (event == kBigHammerWithAck) BtSend(this, kCoexBigHammerAck);
  DeviceClose();
  DebugCentral::Get().ReportBqrError(BqrErrorCode::kSocBigHammerFault, "restart bt due to receiving Big Hammer Event!");
}

CoexDevice::Descriptor CoexDevice::DeviceOf(const PollSession& session) const {
  const std::lock_guard lock(mutex_);
  return session_.get() == &session ? device_ : nullptr;
}

void CoexDevice::sigusr1_handler(int signal) {
  // The signal is the process's: one that somebody sends from outside ends no other thread.
  if (signal != SIGUSR1 || !t_poll_thread) return;
  LOG(INFO) << "sigusr1_handler: pthread_exit(0)";
  pthread_exit(nullptr);
}

}  // namespace android::hardware::bluetooth::coex_device
