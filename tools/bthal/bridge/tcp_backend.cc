#include <android-base/stringprintf.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include "bthal/bridge/socket_backend.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

class TcpBackend final : public SocketBackend {
 public:
  TcpBackend(std::string address, int port) : text_(std::move(address)), port_(port) {}

  bool Check(std::string* error) override {
    if (Parse()) return true;
    *error = "'" + text_ + "' is no address of a network interface: expected something like 127.0.0.1 or ::1";
    return false;
  }

  bool Open(std::string* error) override {
    if (!Check(error)) return false;
    unique_fd socket(::socket(address_.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    return Listen(std::move(socket), reinterpret_cast<const sockaddr*>(&address_), size_, error);
  }

  std::string Name() const override {
    const bool v6 = text_.find(':') != std::string::npos;
    return StringPrintf(v6 ? "TCP port [%s]:%d" : "TCP port %s:%d", text_.c_str(), BoundPort());
  }

 protected:
  // A packet goes out when it is there.
  void Prepare(int connection) const override {
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  }

 private:
  bool Parse() {
    const auto port = htons(static_cast<uint16_t>(port_));
    auto* v4 = reinterpret_cast<sockaddr_in*>(&address_);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&address_);
    address_ = {};
    if (inet_pton(AF_INET, text_.c_str(), &v4->sin_addr) == 1) {
      v4->sin_family = AF_INET;
      v4->sin_port = port;
      size_ = sizeof(*v4);
    } else if (inet_pton(AF_INET6, text_.c_str(), &v6->sin6_addr) == 1) {
      v6->sin6_family = AF_INET6;
      v6->sin6_port = port;
      size_ = sizeof(*v6);
    } else {
      return false;
    }
    return true;
  }

  // With port 0 the kernel chooses.
  int BoundPort() const {
    sockaddr_storage bound = {};
    socklen_t size = sizeof(bound);
    if (listener() < 0 || getsockname(listener(), reinterpret_cast<sockaddr*>(&bound), &size) != 0) return port_;
    return ntohs(bound.ss_family == AF_INET ? reinterpret_cast<sockaddr_in*>(&bound)->sin_port
                                            : reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port);
  }

  const std::string text_;
  const int port_;
  sockaddr_storage address_ = {};
  socklen_t size_ = 0;
};

}  // namespace

std::unique_ptr<Backend> MakeTcpBackend(const std::string& address, int port) {
  return std::make_unique<TcpBackend>(address, port);
}

}  // namespace bthal::tool
