#include "thread/socket_processor.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include <android-base/file.h>
#include <android-base/logging.h>

#include "os/device_path.h"
#include "os/error_text.h"
#include "os/log_throttle.h"

namespace android::hardware::bluetooth::hci {
namespace {

using ::android::base::unique_fd;

constexpr char* kDefaultTag = nullptr;  // of the lines
constexpr size_t kMaxPacketSize = 8192;
constexpr mode_t kSocketFileMode = 0664;
constexpr char kSocketFileGroup[] = "system";
constexpr size_t kGroupBufferSize = 16384;

// A frame in stream mode:
//   0x40 | payload length (2, host order) | payload
constexpr uint8_t kStreamHeader = 0x40;
constexpr size_t kStreamHeaderSize = 1;
constexpr size_t kStreamLengthSize = sizeof(uint16_t);

void GiveToSystemGroup(const std::string& path) {
  std::array<char, kGroupBufferSize> buffer{};
  group entry{};
  group* found = nullptr;
  getgrnam_r(kSocketFileGroup, &entry, buffer.data(), buffer.size(), &found);
  if (found == nullptr) {
    LOG(INFO) << __func__ << ": [bthal.socket_processor] No group \"" << kSocketFileGroup
              << "\" here, the socket file keeps its group.";
  } else if (chown(path.c_str(), static_cast<uid_t>(-1), found->gr_gid) != 0) {
    LOG(WARNING) << __func__ << ": [bthal.socket_processor] Unable to give the socket file to group \""
                 << kSocketFileGroup << "\""
                 << ": " << os::ErrorText();
  }
}

}  // namespace

SocketProcessor::SocketProcessor(SocketMode mode, std::string path, int backlog, PacketCallback packet_cb)
    : socket_mode_(mode), socket_path_(std::move(path)), packet_cb_(std::move(packet_cb)), backlog_(backlog) {}

SocketProcessor::~SocketProcessor() {
  CloseClient();
  CloseServer();
}

bool SocketProcessor::OpenServer() {
  if (CreateSocket() && BindSocket() && ListenForClients()) return true;
  CloseServer();
  return false;
}

bool SocketProcessor::CreateSocket() {
  CloseServer();
  server_socket_.reset(socket(AF_UNIX, static_cast<int>(socket_mode_) | SOCK_CLOEXEC, 0));
  if (server_socket_.ok()) return true;
  LOG(ERROR) << __func__ << ": [bthal.socket_processor] Unable to create the socket.";
  return false;
}

bool SocketProcessor::BindSocket() {
  const std::string path = os::DevicePath(socket_path_);
  unlink(path.c_str());
  if (!BindToPath(path)) {
    LOG(ERROR) << __func__ << ": [bthal.socket_processor] Unable to bind the socket.";
    return false;
  }
  bound_ = true;
  GiveToSystemGroup(path);
  if (chmod(path.c_str(), kSocketFileMode) != 0) {
    LOG(WARNING) << __func__ << ": [bthal.socket_processor] Unable to set the mode of the socket file"
                 << ": " << os::ErrorText();
  }
  return true;
}

// A path that is too long for a socket address is reached through a descriptor of its folder.
bool SocketProcessor::BindToPath(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string name = path;
  unique_fd folder;
  if (path.size() >= sizeof(address.sun_path)) {
    folder.reset(open(::android::base::Dirname(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder.ok()) return false;
    name = "/proc/self/fd/" + std::to_string(folder.get()) + "/" + ::android::base::Basename(path);
    if (name.size() >= sizeof(address.sun_path)) {
      errno = ENAMETOOLONG;
      return false;
    }
  }
  std::copy(name.begin(), name.end(), address.sun_path);
  return bind(server_socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

bool SocketProcessor::ListenForClients() {
  if (listen(server_socket_.get(), backlog_) == 0) return true;
  LOG(ERROR) << __func__ << ": [bthal.socket_processor] Unable to listen for clients.";
  return false;
}

void SocketProcessor::CloseServer() {
  if (std::exchange(bound_, false)) unlink(os::DevicePath(socket_path_).c_str());
  server_socket_.reset();
}

void SocketProcessor::CloseClient() {
  client_socket_.reset();
  recv_state_ = RecvState::kHeader;  // the next client starts with a header, wherever this one stopped
}

void SocketProcessor::SetClientSocket(int fd) {
  CloseClient();
  client_socket_.reset(fd);
}

void SocketProcessor::SetSocketMode(SocketMode mode) { socket_mode_ = mode; }

void SocketProcessor::ShutdownClient() {
  if (client_socket_.ok()) shutdown(client_socket_.get(), SHUT_RDWR);
}

bool SocketProcessor::Send(const std::vector<uint8_t>& frame) {
  const ssize_t result = socket_mode_ == SocketMode::kPacket ? SendPacket(frame) : SendStream(frame);
  if (result > 0) return true;
  CountDroppedFrame();
  PrintSocketErr(result, SocketDirection::kSend);
  return false;
}

// Both return a positive count, 0 when the client's buffer is full or nothing was sent, or -1 with errno.
ssize_t SocketProcessor::SendPacket(const std::vector<uint8_t>& frame) {
  const ssize_t sent = TEMP_FAILURE_RETRY(
      sendto(client_socket_.get(), frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0));
  return sent < 0 && errno == EAGAIN ? 0 : sent;
}

ssize_t SocketProcessor::SendStream(const std::vector<uint8_t>& frame) {
  if (frame.size() > std::numeric_limits<uint16_t>::max()) {
    errno = EMSGSIZE;
    return -1;
  }
  const auto length = static_cast<uint16_t>(frame.size());
  std::vector<uint8_t> bytes(kStreamHeaderSize + kStreamLengthSize);
  bytes.reserve(bytes.size() + frame.size());
  bytes[0] = kStreamHeader;
  memcpy(&bytes[kStreamHeaderSize], &length, kStreamLengthSize);
  bytes.insert(bytes.end(), frame.begin(), frame.end());

  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t sent =
        TEMP_FAILURE_RETRY(send(client_socket_.get(), &bytes[done], bytes.size() - done, MSG_DONTWAIT | MSG_NOSIGNAL));
    if (sent <= 0) {
      const bool full = sent < 0 && errno == EAGAIN;
      if (done > 0) ShutdownClient();
      return full ? 0 : sent;
    }
    done += static_cast<size_t>(sent);
  }
  return static_cast<ssize_t>(done);
}

bool SocketProcessor::Recv() { return socket_mode_ == SocketMode::kPacket ? RecvPacket() : RecvStream(); }

bool SocketProcessor::RecvPacket() {
  recv_buffer_.resize(kMaxPacketSize);
  const ssize_t received = TEMP_FAILURE_RETRY(
      recvfrom(client_socket_.get(), recv_buffer_.data(), recv_buffer_.size(), MSG_TRUNC, nullptr, nullptr));
  if (received <= 0) {
    PrintSocketErr(received, SocketDirection::kReceive);
    return false;
  }
  if (static_cast<size_t>(received) > kMaxPacketSize) {
    RefuseLargeFrame(static_cast<size_t>(received));
    return true;
  }
  recv_buffer_.resize(static_cast<size_t>(received));
  packet_cb_(recv_buffer_);
  return true;
}

// What is left of it in the buffer would be another frame.
void SocketProcessor::RefuseLargeFrame(size_t size) {
  CountDroppedFrame();
  static os::LogThrottle throttle;
  throttle.Log(kDefaultTag, ::android::base::ERROR, [size] {
    return "RecvPacket: [bthal.socket_processor] A frame of " + std::to_string(size) + " bytes is refused: at most " +
           std::to_string(kMaxPacketSize) + " are taken.";
  });
}

bool SocketProcessor::RecvStream() {
  switch (recv_state_) {
    case RecvState::kHeader:
      if (!RecvStreamWithFixLength(kStreamHeaderSize)) return false;
      if (fixed_buffer_[0] != kStreamHeader) {
        LOG(ERROR) << __func__ << ": [bthal.socket_processor] Invalid header type.";
        return false;
      }
      recv_state_ = RecvState::kLength;
      return true;
    case RecvState::kLength:
      if (!RecvStreamWithFixLength(kStreamLengthSize)) return false;
      memcpy(&payload_size_, fixed_buffer_.data(), kStreamLengthSize);
      if (payload_size_ == 0) {
        LOG(ERROR) << __func__ << ": [bthal.socket_processor] Invalid payload size.";
        recv_state_ = RecvState::kHeader;
        return false;
      }
      recv_state_ = RecvState::kPayload;
      return true;
    case RecvState::kPayload:
      if (!RecvStreamWithFixLength(payload_size_)) return false;
      recv_state_ = RecvState::kHeader;
      recv_buffer_.swap(fixed_buffer_);
      packet_cb_(recv_buffer_);
      return true;
  }
  return false;
}

bool SocketProcessor::RecvStreamWithFixLength(size_t length) {
  fixed_buffer_.resize(length);
  size_t done = 0;
  while (done < length) {
    const ssize_t received =
        TEMP_FAILURE_RETRY(recvfrom(client_socket_.get(), &fixed_buffer_[done], length - done, 0, nullptr, nullptr));
    if (received <= 0) {
      PrintSocketErr(received, SocketDirection::kReceive);
      return false;
    }
    done += static_cast<size_t>(received);
  }
  return true;
}

void SocketProcessor::PrintSocketErr(ssize_t result, SocketDirection direction) const {
  // A client that does not read causes one with every frame, one that cannot be read from is dropped.
  static os::LogThrottle throttles[2][2];
  os::LogThrottle& throttle = throttles[result == 0 ? 0 : 1][static_cast<int>(direction)];
  throttle.Log(kDefaultTag, ::android::base::ERROR, [&] {
    const std::string dir = "dir: " + std::to_string(static_cast<int>(direction));
    if (result == 0) {
      return "PrintSocketErr: [bthal.socket_processor] Client connection is close or send buffer is full, " + dir;
    }
    return "PrintSocketErr: [bthal.socket_processor] Unable to receive Thread frames from the Thread HAL, client "
           "socket: " +
           std::to_string(client_socket_.get()) + ", " + dir;
  });
}

}  // namespace android::hardware::bluetooth::hci
