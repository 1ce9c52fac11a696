#define LOG_TAG "bthal.shim"

#include "h4/uart_link.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <termios.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "h4/async_fd_watcher.h"

namespace android::hardware::bluetooth::hci {
namespace {

using ::android::base::StringPrintf;

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

void LogConsumerThatDoesNotReturn(const char* operation) {
  LOG(WARNING) << operation << ": a received packet is still being delivered, going on without the receive thread";
}

}  // namespace

struct UartLink::Line {
  Line(int uart_fd, const Consumers& consumers, const H4Owner& owner) : fd(uart_fd), h4(uart_fd, consumers, owner) {}
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  // The last to leave is the receive thread, with what it has still walked through.
  ~Line() { Get().dropped_before_ += h4.DroppedBytes(); }

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

void UartLink::Attach(int fd, const Consumers& consumers, const H4Owner& owner) {
  Detach();
  auto line = std::make_shared<Line>(fd, consumers, owner);
  const std::lock_guard lock(mutex_);
  line_ = std::move(line);
}

bool UartLink::Watch(const std::weak_ptr<const void>& receiver) {
  const std::shared_ptr<Line> line = CurrentLine();
  if (line == nullptr) return false;
  const auto read = [line, receiver](int fd) {
    // The callback may tear the transport down and with it this closure: what it stands on is held here.
    const std::shared_ptr<Line> keep_line = line;  // NOLINT(performance-unnecessary-copy-initialization)
    const std::shared_ptr<const void> keep_receiver = receiver.lock();
    if (keep_receiver != nullptr) keep_line->h4.OnDataReady(fd);
  };
  if (Watcher().WatchFdForNonBlockingReads(line->fd, read) == 0) return true;
  LOG(ERROR) << StringPrintf(
      "%s: cannot watch descriptor %d: it is not below 1024, or the system is out of descriptors or threads", __func__,
      line->fd);
  return false;
}

void UartLink::Detach(std::chrono::milliseconds patience) {
  std::shared_ptr<Line> line;
  {
    const std::lock_guard lock(mutex_);
    line = std::exchange(line_, nullptr);
  }
  if (line == nullptr) return;
  while (line->senders != 0) {
    line->h4.GiveUpWriting();
    DiscardOutput(line->fd);
    std::this_thread::sleep_for(kSenderPollInterval);
  }
  if (!Watcher().StopWatchingFd(line->fd, patience)) LogConsumerThatDoesNotReturn(__func__);
}

void UartLink::StopReceiving(std::chrono::milliseconds patience) {
  if (!Watcher().StopWatchingFileDescriptors(patience)) LogConsumerThatDoesNotReturn(__func__);
}

bool UartLink::WaitForSenders(std::chrono::milliseconds patience) const {
  const std::shared_ptr<Line> line = CurrentLine();
  if (line == nullptr) return true;
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (line->senders != 0) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kSenderPollInterval);
  }
  return true;
}

void UartLink::ReportHangUp() const {
  if (const std::shared_ptr<Line> line = CurrentLine()) line->h4.ReportHangUp(line->fd);
}

uint64_t UartLink::DroppedBytes() const {
  const std::shared_ptr<Line> line = CurrentLine();
  return dropped_before_ + (line == nullptr ? 0 : line->h4.DroppedBytes());
}

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

}  // namespace android::hardware::bluetooth::hci
