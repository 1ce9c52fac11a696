// A peer on the Binder sockets that need not keep to the rules.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/binder_status.h>

namespace bthal::test {

inline constexpr uint16_t kCall = 1;
inline constexpr uint16_t kReply = 2;
inline constexpr uint16_t kRelease = 3;
inline constexpr uint16_t kConnect = 4;
inline constexpr uint16_t kSkip = 5;
inline constexpr int32_t kFindService = 1;
inline constexpr int32_t kPing = '_' << 24 | 'P' << 16 | 'N' << 8 | 'G';
inline constexpr int32_t kDump = '_' << 24 | 'D' << 16 | 'M' << 8 | 'P';
inline constexpr uint32_t kWithDescriptor = 1;
inline constexpr uint32_t kInOrder = 2;

// As laid out on the wire.
struct Header {
  uint32_t size = 0;
  uint16_t type = kCall;
  uint16_t objects = 0;
  uint64_t call = 1;
  uint64_t target = 0;
  uint64_t nested = 0;
  int32_t code = kPing;
  uint32_t flags = 0;
};

// A process's end of a connection, without any manners.
class RawPeer {
 public:
  // `root`: the device root on which one process serves. Unless `introduced`, the socket for the answers stays here.
  explicit RawPeer(const std::string& root, bool introduced = true)
      : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    for (const auto& entry : std::filesystem::directory_iterator(root + "/run/bthal/binder")) {
      strncpy(address.sun_path, entry.path().c_str(), sizeof(address.sun_path) - 1);
    }
    connected_ = connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    android::base::unique_fd theirs;
    android::base::Socketpair(SOCK_STREAM, &answers_, &theirs);
    if (introduced) SendWithDescriptors({.type = kConnect, .flags = kWithDescriptor}, {theirs.get()});
  }

  bool connected() const { return connected_; }

  void Send(const void* bytes, size_t size) const { send(socket_.get(), bytes, size, MSG_NOSIGNAL); }
  void Send(const Header& header, const std::vector<uint32_t>& body = {}) const {
    const std::vector<uint8_t> bytes = Bytes(header, body);
    Send(bytes.data(), bytes.size());
  }
  // The same, where the answers go.
  void Answer(const Header& header, const std::vector<uint32_t>& body = {}) const {
    const std::vector<uint8_t> bytes = Bytes(header, body);
    send(answers_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  void SendWithDescriptors(const Header& header, const std::vector<int>& descriptors,
                           const std::vector<uint32_t>& body = {}) const {
    iovec parts[] = {{const_cast<Header*>(&header), sizeof(header)},
                     {const_cast<uint32_t*>(body.data()), body.size() * sizeof(uint32_t)}};
    std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
    memcpy(CMSG_DATA(rights), descriptors.data(), descriptors.size() * sizeof(int));
    sendmsg(socket_.get(), &message, MSG_NOSIGNAL);
  }

  // The next header where the answers go, its body skipped; type 0 at the end of the connection.
  Header Receive() const {
    Header header;
    if (recv(answers_.get(), &header, sizeof(header), MSG_WAITALL) != sizeof(header)) return {.type = 0};
    std::vector<char> body(header.size);
    if (!body.empty()) recv(answers_.get(), body.data(), body.size(), MSG_WAITALL);
    return header;
  }
  bool IsEnded() const { return Receive().type == 0; }
  // The same, seen where the calls go.
  bool IsCut() const {
    char byte = 0;
    return recv(socket_.get(), &byte, sizeof(byte), 0) <= 0;
  }
  bool Answers() const {
    Send(Header{.call = 77});
    const Header answer = Receive();
    return answer.type == kReply && answer.call == 77 && answer.code == STATUS_OK;
  }

 private:
  static std::vector<uint8_t> Bytes(const Header& header, const std::vector<uint32_t>& body) {
    const auto* head = reinterpret_cast<const uint8_t*>(&header);
    const auto* rest = reinterpret_cast<const uint8_t*>(body.data());
    std::vector<uint8_t> bytes(head, head + sizeof(header));
    bytes.insert(bytes.end(), rest, rest + body.size() * sizeof(uint32_t));
    return bytes;
  }

  android::base::unique_fd socket_;
  android::base::unique_fd answers_;
  bool connected_ = false;
};

// The words of a string as a parcel has it.
inline std::vector<uint32_t> Words(const std::string& text) {
  std::vector<uint32_t> words((text.size() + 3) / 4 + 1);
  words[0] = static_cast<uint32_t>(text.size());
  memcpy(&words[1], text.data(), text.size());
  return words;
}

// Connects and asks for the service as a client does; its object is number 1 of this connection then.
inline RawPeer FoundBy(const std::string& root, const std::string& instance) {
  RawPeer peer(root);
  const std::vector<uint32_t> name = Words(instance);
  peer.Send(Header{.size = static_cast<uint32_t>(4 * name.size()), .code = kFindService}, name);
  peer.Receive();
  return peer;
}

// Calls a method of the service that takes one array of bytes, an empty one here.
inline void Call(const RawPeer& peer, uint64_t call, const std::string& descriptor, int32_t code) {
  std::vector<uint32_t> body = Words(descriptor);
  body.push_back(0);
  peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .call = call, .target = 1, .code = code}, body);
}

}  // namespace bthal::test
