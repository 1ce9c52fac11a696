#include "sim/wire/backend.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "sim/wire/h4.h"

namespace bthal::sim {

bool Backend::Connect(const std::string& where, std::string* error) {
  constexpr char kScheme[] = "unix:";
  const size_t scheme = strlen(kScheme);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (where.compare(0, scheme, kScheme) != 0 || where.size() == scheme) {
    *error = "the backend is written unix:PATH, not '" + where + "'";
    return false;
  }
  const std::string path = where.substr(scheme);
  if (path.size() >= sizeof(address.sun_path)) {
    *error = "the backend's path is longer than " + std::to_string(sizeof(address.sun_path) - 1) + " bytes";
    return false;
  }
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok() || connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    *error = "cannot reach the emulator at " + path + ": " + strerror(errno) + "; start it first";
    return false;
  }
  socket_ = std::move(fd);
  return true;
}

short Backend::PollEvents() const { return static_cast<short>(POLLIN | (waiting_.empty() ? 0 : POLLOUT)); }

bool Backend::Forward(uint8_t type, const Bytes& packet) {
  if (!socket_.ok()) return false;
  Bytes whole{type};
  PutAll(whole, packet);
  waiting_.push_back(std::move(whole));
  Flush();
  return socket_.ok();
}

void Backend::Flush() {
  while (!waiting_.empty()) {
    const Bytes& packet = waiting_.front();
    const ssize_t count =
        TEMP_FAILURE_RETRY(send(socket_.get(), packet.data() + sent_, packet.size() - sent_, MSG_NOSIGNAL));
    if (count < 0 && errno == EAGAIN) return;
    if (count < 0) {
      Gone(strerror(errno));
      return;
    }
    sent_ += static_cast<size_t>(count);
    if (sent_ < packet.size()) return;
    sent_ = 0;
    waiting_.pop_front();
  }
}

void Backend::Serve(const OnPacket& on_packet) {
  uint8_t buffer[4096];
  while (socket_.ok()) {
    const ssize_t count = TEMP_FAILURE_RETRY(recv(socket_.get(), buffer, sizeof(buffer), 0));
    if (count > 0) {
      received_.insert(received_.end(), buffer, buffer + count);
      continue;
    }
    if (count < 0 && errno == EAGAIN) break;
    Gone(count == 0 ? "it hung up" : strerror(errno));
  }
  Cut(on_packet);
  if (socket_.ok()) Flush();
}

void Backend::Cut(const OnPacket& on_packet) {
  size_t at = 0;
  while (at < received_.size()) {
    const uint8_t type = received_[at];
    if (type != kH4Event && !IsHostPacketType(type)) {
      Gone("it sent a packet of type " + Hex(type, 2));
      return;
    }
    Bytes rest = Part(received_, at + 1);
    const size_t size = H4PacketSize(type, rest);
    if (size == 0 || rest.size() < size) break;
    rest.resize(size);
    at += 1 + size;
    on_packet(type, std::move(rest));
  }
  received_ = Part(received_, at);
}

void Backend::Gone(const std::string& why) {
  journal_->Record(WireEvent::kProtocolError, 0, "the emulator has gone: " + why);
  socket_.Reset();
  waiting_.clear();
  received_.clear();
  sent_ = 0;
}

}  // namespace bthal::sim
