// What the Unix and the TCP socket share: one listens, one peer at a time is served, others are sent away.
#pragma once

#include <sys/socket.h>

#include "bthal/bridge/backend.h"

namespace bthal::tool {

class SocketBackend : public Backend {
 public:
  void Close() override { listener_.reset(); }
  int ready_fd() const override { return listener_.get(); }
  std::optional<Peer> Accept() override;
  void Refuse() override;
  bool Release(std::string*) override { return true; }

 protected:
  // Binds `socket` and listens; "cannot listen on NAME: why".
  bool Listen(::android::base::unique_fd socket, const sockaddr* address, socklen_t size, std::string* error);
  // What a fresh connection needs.
  virtual void Prepare(int connection) const { (void)connection; }

  int listener() const { return listener_.get(); }

 private:
  ::android::base::unique_fd listener_;
};

}  // namespace bthal::tool
