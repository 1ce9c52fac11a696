// Where a host stack comes in: what it opens or connects to. One file for each kind.
#pragma once

#include <android-base/unique_fd.h>

#include <memory>
#include <optional>
#include <string>

namespace bthal::tool {

// A host stack that has come.
struct Peer {
  ::android::base::unique_fd fd;  // does not block
  bool whole_packets = false;     // each read and each write is one H4 packet; else they are a stream of such
};

// Used on one thread. Every failure leaves one line in `error`.
class Backend {
 public:
  virtual ~Backend() = default;

  // What can be known before the HAL is taken: whether Open has a chance.
  virtual bool Check(std::string* error) = 0;

  // Makes what a host stack opens or connects to. Its destructor, or Close, takes it away again.
  virtual bool Open(std::string* error) = 0;
  virtual void Close() = 0;

  // What a person connects a stack to: "hci1", "a pseudo-terminal, /tmp/hci". Once open.
  virtual std::string Name() const = 0;

  // Readable when somebody may have come.
  virtual int ready_fd() const = 0;

  // Who has come; nothing if nobody, or if it has left again.
  virtual std::optional<Peer> Accept() = 0;

  // Sends away who has come while another one is served.
  virtual void Refuse() = 0;

  // The peer has left, or is given up: makes room for the next one. Its descriptor is closed already.
  virtual bool Release(std::string* error) = 0;

 protected:
  Backend() = default;
  Backend(const Backend&) = delete;
  Backend& operator=(const Backend&) = delete;
};

// A controller of this machine's kernel. `node` is /dev/vhci's path.
std::unique_ptr<Backend> MakeVhciBackend(const std::string& node);
// A pseudo-terminal that `link` leads to. A new one for each peer.
std::unique_ptr<Backend> MakePtyBackend(const std::string& link);
// A socket at `path` that only this user can connect to.
std::unique_ptr<Backend> MakeUnixBackend(const std::string& path);
// A port of this machine, for this machine alone where `address` is one of the loopback.
std::unique_ptr<Backend> MakeTcpBackend(const std::string& address, int port);

}  // namespace bthal::tool
