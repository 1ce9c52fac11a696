#include "thread/thread_dispatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include <android-base/logging.h>

#include "os/kill_self.h"
#include "os/log_throttle.h"

namespace android::hardware::bluetooth::hci {
namespace {

using ::android::base::unique_fd;

constexpr int kBacklog = 3;
constexpr int kAcceptPauseMs = 100;
constexpr std::array<uint8_t, 3> kHardwareResetFrame = {0x80, 0x01, 0x04};

constexpr size_t kVendorHeaderSize = 4;
constexpr size_t kVendorLengthOffset = 2;

HciPacket ConstructToVendorPacket(const std::vector<uint8_t>& frame) {
  HciPacket packet;
  packet.resize(kVendorHeaderSize + frame.size());
  packet[kVendorLengthOffset] = static_cast<uint8_t>(frame.size());
  packet[kVendorLengthOffset + 1] = static_cast<uint8_t>(frame.size() >> 8);
  std::copy_n(frame.data(), frame.size(), packet.data() + kVendorHeaderSize);
  return packet;
}

// Lines that packets, or clients that come and go, would repeat without end, under the default tag.
constexpr char* kDefaultTag = nullptr;
void Warn(os::LogThrottle& throttle, const char* text) { throttle.Log(kDefaultTag, ::android::base::WARNING, text); }

// The payload; an empty one when the header does not fit the frame.
std::vector<uint8_t> ExtractFromVendorPacket(const HciPacket& frame) {
  if (frame.size() < kVendorHeaderSize) {
    static os::LogThrottle throttle;
    Warn(throttle, "ExtractFromVendorPacket: [bthal.thread_dispatcher] Invalid vendor data format.");
    return {};
  }
  const size_t length = frame[kVendorLengthOffset] | frame[kVendorLengthOffset + 1] << 8;
  if (length + kVendorHeaderSize != frame.size()) {
    static os::LogThrottle throttle;
    Warn(throttle, "ExtractFromVendorPacket: [bthal.thread_dispatcher] Data size does not match with the actual data.");
    return {};
  }
  return {frame.begin() + kVendorHeaderSize, frame.end()};
}

}  // namespace

ThreadDispatcher::ThreadDispatcher(SocketMode mode)
    : socket_processor_(mode, kThreadDispatcherSocketPath, kBacklog,
                        [this](const std::vector<uint8_t>& frame) { OnThreadPacketReady(frame); }) {}

ThreadDispatcher::~ThreadDispatcher() {
  running_ = false;
  CloseThreadDispatcher();
}

bool ThreadDispatcher::OnBluetoothEnabled(HciFlowControl* flow_control) {
  LOG(INFO) << __func__ << ": [bthal.thread_dispatcher]";
  if (running_.exchange(true)) {
    LOG(WARNING) << __func__ << ": [bthal.thread_dispatcher] Thread Dispatcher is started, close first and restart.";
    return false;
  }
  CloseThreadDispatcher();  // what a stop on the dispatcher's own thread has left
  const std::lock_guard lock(enable_mutex_);
  flow_control_ = MakeHandle(flow_control);
  if (StartThreadDispatcher()) return true;
  LOG(ERROR) << __func__ << ": [bthal.thread_dispatcher] Thread Dispatcher starting process is failed.";
  flow_control_.reset();
  running_ = false;
  return false;
}

bool ThreadDispatcher::OnBluetoothDisabled() {
  if (!running_.exchange(false)) {
    LOG(WARNING) << __func__ << ": [bthal.thread_dispatcher] Thread Dispatcher is off, no need to close.";
    return false;
  }
  CloseThreadDispatcher();
  return true;
}

bool ThreadDispatcher::StartThreadDispatcher() {
  if (dispatcher_thread_.joinable()) return false;  // this very thread, which cannot wait for its own end
  if (!::android::base::Pipe(&notify_listen_fd_, &notify_write_fd_, O_NONBLOCK | O_CLOEXEC)) return false;
  dispatcher_thread_ = os::Thread::Start("bt_thread_disp", [this] { ThreadDispatcherRoutine(); });
  if (dispatcher_thread_.joinable()) return true;
  notify_listen_fd_.reset();
  notify_write_fd_.reset();
  return false;
}

void ThreadDispatcher::CloseThreadDispatcher() {
  if (!dispatcher_thread_.joinable()) return;
  constexpr char kStop = 0;
  (void)TEMP_FAILURE_RETRY(write(notify_write_fd_.get(), &kStop, sizeof(kStop)));
  {
    // A client that has sent half a frame must not hold the thread in its receive.
    const std::lock_guard lock(client_mutex_);
    socket_processor_.ShutdownClient();
  }
  if (dispatcher_thread_.IsCurrent()) return;
  dispatcher_thread_.join();
  notify_listen_fd_.reset();
  notify_write_fd_.reset();
}

void ThreadDispatcher::ThreadDispatcherRoutine() {
  LOG(INFO) << __func__ << ": [bthal.thread_dispatcher] Dispatcher is open.";
  if (socket_processor_.OpenServer()) ReceiveFromClients();
  LOG(INFO) << __func__ << ": [bthal.thread_dispatcher] Dispatcher is closed.";
  {
    const std::lock_guard lock(enable_mutex_);
    flow_control_.reset();
  }
  DropClient();
  socket_processor_.CloseServer();
}

void ThreadDispatcher::ReceiveFromClients() {
  while (running_) {
    LOG(DEBUG) << __func__ << ": [bthal.thread_dispatcher] Server is idle...";
    // poll passes over a negative descriptor: the client's while there is none.
    pollfd watched[] = {{notify_listen_fd_.get(), POLLIN, 0},
                        {socket_processor_.GetServerSocket(), POLLIN, 0},
                        {client_connected_ ? socket_processor_.GetClientSocket() : -1, POLLIN, 0}};
    const auto& [notification, server, client] = watched;
    if (poll(watched, std::size(watched), -1) < 0) continue;
    if (notification.revents != 0) {
      LOG(INFO) << __func__ << ": [bthal.thread_dispatcher] Server is terminated by notification...";
      char stop = 0;
      (void)TEMP_FAILURE_RETRY(read(notification.fd, &stop, sizeof(stop)));
      DropClient();
      // Whatever running_ says: a restart that waits for this thread's end has set it again by now.
      return;
    }
    if (client.revents != 0 && !socket_processor_.Recv()) {
      static os::LogThrottle throttle;
      throttle.Log(kDefaultTag, ::android::base::ERROR,
                   "ReceiveFromClients: [bthal.thread_dispatcher] Server receives from client failed...");
      DropClient();
    }
    if (server.revents != 0) {
      static os::LogThrottle throttle;
      throttle.Log(kDefaultTag, ::android::base::INFO,
                   "ReceiveFromClients: [bthal.thread_dispatcher] Server receives client connect request...");
      AcceptClient();
    }
  }
}

void ThreadDispatcher::AcceptClient() {
  unique_fd client(accept4(socket_processor_.GetServerSocket(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!client.ok()) {
    LOG(WARNING) << __func__ << ": [bthal.thread_dispatcher] Unable to accept for clients.";
    // Out of descriptors, the request stays pending: give others the time to return some, unless a stop comes first.
    pollfd notification{notify_listen_fd_.get(), POLLIN, 0};
    poll(&notification, 1, kAcceptPauseMs);
    return;
  }
  if (client_connected_) {
    static os::LogThrottle throttle;
    Warn(throttle, "AcceptClient: [bthal.thread_dispatcher] Already connected with another client.");
    return;
  }
  const std::lock_guard lock(client_mutex_);
  socket_processor_.SetClientSocket(client.release());
  client_connected_ = true;
  LOG(INFO) << __func__ << ": [bthal.thread_dispatcher] Accepted new client successfully.";
}

void ThreadDispatcher::DropClient() {
  const std::lock_guard lock(client_mutex_);
  client_connected_ = false;
  socket_processor_.CloseClient();
}

void ThreadDispatcher::OnThreadPacketReady(const std::vector<uint8_t>& frame) {
  if (std::equal(frame.begin(), frame.end(), kHardwareResetFrame.begin(), kHardwareResetFrame.end())) {
    LOG(WARNING) << __func__ << ": [bthal.thread_dispatcher] Hardware reset from Thread HAL.";
    os::KillSelf();
    return;
  }
  const std::lock_guard lock(enable_mutex_);
  if (const auto flow_control = flow_control_.lock()) {
    const HciPacket packet = ConstructToVendorPacket(frame);
    flow_control->Send(static_cast<uint8_t>(HciPacketType::kThreadData), packet.data(), packet.size());
  } else {
    static os::LogThrottle throttle;
    throttle.Log(kDefaultTag, ::android::base::ERROR,
                 "OnThreadPacketReady: [bthal.thread_dispatcher] Unable to send Thread frames to the controller.");
  }
}

void ThreadDispatcher::SendThreadPacket(const HciPacket& frame) {
  const std::lock_guard lock(client_mutex_);
  LOG(DEBUG) << __func__ << ": [bthal.thread_dispatcher] Sending to Thread HAL.";
  static os::LogThrottle not_running;
  static os::LogThrottle not_connected;
  static os::LogThrottle empty;
  if (!running_) {
    Warn(not_running, "SendThreadPacket: [bthal.thread_dispatcher] Dispatcher is not running.");
  } else if (!client_connected_) {
    Warn(not_connected, "SendThreadPacket: [bthal.thread_dispatcher] Thread HAL is not connected.");
  } else if (frame.empty()) {
    Warn(empty, "SendThreadPacket: [bthal.thread_dispatcher] Data is empty.");
  } else {
    socket_processor_.Send(ExtractFromVendorPacket(frame));
    return;
  }
  SocketProcessor::CountDroppedFrame();
}

}  // namespace android::hardware::bluetooth::hci
