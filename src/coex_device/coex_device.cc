#define LOG_TAG "coex_device"

#include "coex_device/coex_device.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <utility>

#include "coex_device/session.h"
#include "debug_central/debug_central.h"
#include "os/device_path.h"

namespace android::hardware::bluetooth::coex_device {
namespace {

using ::android::base::StringPrintf;

constexpr char kDevicePath[] = "/dev/wbrc";
// Two messages go with each change of power, and power has to go within the time that SIGTERM leaves.
constexpr std::chrono::milliseconds kWritePatience(500);

// Messages to the driver:
//   0x02 | 0x02 | group (1) | value (1)
using Message = std::array<uint8_t, 4>;
constexpr size_t kValueOffset = 3;

Message MessageOf(int code) {
  switch (code) {
    case 1:
      return {0x02, 0x02, 0x03, 0x41};
    case kCoexBigHammerAck:
      return {0x02, 0x02, 0x04, 0x81};
    case kCoexPowerGoingOff:
      return {0x02, 0x02, 0x03, 0x45};
    case kCoexPowerIsOff:
      return {0x02, 0x02, 0x03, 0x46};
    case kCoexPowerComingOn:
      return {0x02, 0x02, 0x03, 0x47};
    case kCoexPowerIsOn:
      return {0x02, 0x02, 0x03, 0x48};
    default:
      LOG(ERROR) << "Unknown Message";
      return {0x02, 0x02, 0x00, 0x00};
  }
}

// Waits until the driver may take something; false when `until` comes first.
bool AwaitRoom(int fd, std::chrono::steady_clock::time_point until) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
  if (left.count() <= 0) return false;
  pollfd device{fd, POLLOUT, 0};
  poll(&device, 1, static_cast<int>(left.count()));
  return true;
}

// Writes a whole message to the non-blocking descriptor.
bool Write(int fd, const uint8_t* message, size_t size) {
  const auto until = std::chrono::steady_clock::now() + kWritePatience;
  ssize_t written = 0;
  while ((written = TEMP_FAILURE_RETRY(write(fd, message, size))) < 0 && errno == EAGAIN) {
    if (AwaitRoom(fd, until)) continue;
    LOG(ERROR) << kDevicePath << " has taken nothing for " << kWritePatience.count()
               << " ms: see whether the driver behind it still runs";
    return false;
  }
  return written == static_cast<ssize_t>(size);
}

}  // namespace

CoexDevice& CoexDevice::Get() {
  static auto& device = *new CoexDevice;
  return device;
}

int CoexDevice::DeviceOpen(std::function<void()> handler, int pause_ms) {
  LOG(INFO) << "DeviceOpen";
  const int fd = OpenNode();
  if (fd < 0) return fd;
  bool live = false;
  {
    const std::lock_guard lock(mutex_);
    live = thread_.joinable();
  }
  if (!live && !CreateSocketPair()) return -1;
  {
    const std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
    pause_ms_ = pause_ms;
  }
  if (!live) CreateThread();
  LOG(INFO) << StringPrintf("DeviceOpen return upon created fd: %d", fd);
  return fd;
}

// Opens the node, unless it is open, and returns its descriptor, or -1.
int CoexDevice::OpenNode() {
  if (const Descriptor open_device = device()) return open_device->get();

  base::unique_fd fd(TEMP_FAILURE_RETRY(open(os::DevicePath(kDevicePath).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)));
  if (!fd.ok()) {
    LOG(ERROR) << "Failed to open the coex device!! Error: " << strerror(errno);
    return -1;
  }
  fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
  const int number = fd.get();
  os::Thread ended;
  {
    const std::lock_guard lock(mutex_);
    ended = std::move(thread_);
    device_ = std::make_shared<const base::unique_fd>(std::move(fd));
  }
  // A thread that has closed the device by itself, after a hang-up, has still to be joined.
  if (ended.joinable()) ended.join();
  return number;
}

bool CoexDevice::CreateSocketPair() {
  auto session = std::make_shared<PollSession>();
  base::unique_fd sender;
  if (!base::Socketpair(SOCK_STREAM | SOCK_CLOEXEC, &session->wake_receiver, &sender)) {
    LOG(ERROR) << "Failed to create socket pair!! Error: " << strerror(errno);
    DebugCentral::Get().UpdateRecord(AnchorType::kCoexSocketPairFailed, "Failed to create socket pair");
    return false;
  }
  const std::lock_guard lock(mutex_);
  session_ = std::move(session);
  wake_sender_ = std::move(sender);
  return true;
}

void CoexDevice::DeviceClose() {
  LOG(INFO) << "DeviceClose";
  ClosePollThread();
  Descriptor closing;
  {
    const std::lock_guard lock(mutex_);
    closing = std::exchange(device_, nullptr);
  }
  if (closing != nullptr) LOG(INFO) << StringPrintf("DeviceClose: close(coex_fd_:%d)", closing->get());
}

bool CoexDevice::BtSend(CoexDevice* device, int code) {
  const Message message = MessageOf(code);
  LOG(INFO) << StringPrintf("BtSend msg: 0x%X", message[kValueOffset]);
  return device->WriteEvent(message.data(), message.size());
}

bool CoexDevice::WriteEvent(const uint8_t* message, size_t size) {
  LOG(INFO) << "WriteEvent";
  const Descriptor open_device = device();
  if (open_device == nullptr || !Write(open_device->get(), message, size)) {
    LOG(ERROR) << "Failed to write the message to coex device!!";
    return false;
  }
  return true;
}

CoexDevice::Descriptor CoexDevice::device() const {
  const std::lock_guard lock(mutex_);
  return device_;
}

}  // namespace android::hardware::bluetooth::coex_device
