#define LOG_TAG "bthal.shim"

#include "h4/uart_link.h"

#include <log/log.h>
#include <termios.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "h4/async_fd_watcher.h"
#include "h4/h4_protocol.h"
#include "hci_flow_control/hci_flow_control.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

constexpr auto kSenderPollInterval = std::chrono::milliseconds(1);

async::AsyncFdWatcher& Watcher() {
  static auto& watcher = *new async::AsyncFdWatcher;
  return watcher;
}

// Lets a writer finish whose bytes the controller does not take. A UART wakes its writer when it is flushed, a
// pseudo-terminal only when its output is started again.
void DiscardOutput(int fd) {
  tcflow(fd, TCOOFF);
  tcflush(fd, TCOFLUSH);
  tcflow(fd, TCOON);
}

}  // namespace

struct UartLink::Line {
  Line(int uart_fd, const Consumers& consumers)
      : fd(uart_fd),
        h4(uart_fd, consumers.event_cb, consumers.acl_cb, consumers.sco_cb, consumers.iso_cb, consumers.thread_cb) {}

  const int fd;
  H4Protocol h4;
  std::atomic<int> senders{0};  // raised under the link's mutex only
};

UartLink& UartLink::Get() {
  static auto& link = *new UartLink;
  return link;
}

std::shared_ptr<UartLink::Line> UartLink::CurrentLine() const {
  const std::lock_guard lock(mutex_);
  return line_;
}

void UartLink::Attach(int fd, const Consumers& consumers) {
  Detach();
  auto line = std::make_shared<Line>(fd, consumers);
  const std::lock_guard lock(mutex_);
  line_ = std::move(line);
}

bool UartLink::Watch(const std::weak_ptr<HciFlowControl>& flow) {
  const std::shared_ptr<Line> line = CurrentLine();
  if (line == nullptr) return false;
  const auto read = [line, flow](int fd) {
    // The callback may tear the transport down and with it this closure: what it stands on is held here.
    const std::shared_ptr<Line> keep_line = line;
    const std::shared_ptr<HciFlowControl> keep_flow = flow.lock();
    if (keep_flow != nullptr) keep_line->h4.OnDataReady(fd);
  };
  if (Watcher().WatchFdForNonBlockingReads(line->fd, read) == 0) return true;
  ALOGE("%s: cannot watch descriptor %d: it is not below 1024, or the system is out of descriptors or threads",
        __func__, line->fd);
  return false;
}

void UartLink::Detach() {
  std::shared_ptr<Line> line;
  {
    const std::lock_guard lock(mutex_);
    line = std::exchange(line_, nullptr);
  }
  if (line == nullptr) return;
  while (line->senders != 0) {
    DiscardOutput(line->fd);
    std::this_thread::sleep_for(kSenderPollInterval);
  }
  Watcher().StopWatchingFd(line->fd);
}

void UartLink::StopReceiving() { Watcher().StopWatchingFileDescriptors(); }

size_t UartLink::Send(uint8_t type, const uint8_t* data, size_t length) {
  std::shared_ptr<Line> line;
  {
    const std::lock_guard lock(mutex_);
    if (line_ == nullptr) return 0;
    line = line_;
    ++line->senders;
  }
  const size_t written = line->h4.Send(type, data, length);
  --line->senders;
  return written;
}

}  // namespace android::hardware::bluetooth::hci::shim
