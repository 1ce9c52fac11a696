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
#include <android/binder_ibinder.h>
#include <android/binder_status.h>

namespace bthal::test {

inline constexpr uint16_t kCall = 1;
inline constexpr uint16_t kReply = 2;
inline constexpr uint16_t kRelease = 3;
inline constexpr uint16_t kConnect = 4;
inline constexpr uint16_t kSkip = 5;
inline constexpr uint16_t kExpress = 6;
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

// The sockets between two processes: for calls; for answers, and calls on behalf of calls; for express calls of the
// service, and of its client.
enum class Way { kCalls, kAnswers, kExpressBack, kExpress };

// A process's end of a connection, without any manners.
class RawPeer {
 public:
  // `root`: the device root on which one process serves. Unless `introduced`, all sockets but the calls' stay here.
  explicit RawPeer(const std::string& root, bool introduced = true) {
    Socket(Way::kCalls).reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    for (const auto& entry : std::filesystem::directory_iterator(root + "/run/bthal/binder")) {
      strncpy(address.sun_path, entry.path().c_str(), sizeof(address.sun_path) - 1);
    }
    connected_ = connect(Socket(Way::kCalls).get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    for (const Way way : {Way::kAnswers, Way::kExpressBack, Way::kExpress}) {
      android::base::unique_fd theirs;
      android::base::Socketpair(SOCK_STREAM, &Socket(way), &theirs);
      if (introduced) SendWithDescriptors({.type = kConnect, .flags = kWithDescriptor}, {theirs.get()});
    }
  }

  bool connected() const { return connected_; }

  void Send(const void* bytes, size_t size, Way way = Way::kCalls) const {
    send(Socket(way).get(), bytes, size, MSG_NOSIGNAL);
  }
  void Send(const Header& header, const std::vector<uint32_t>& body = {}, Way way = Way::kCalls) const {
    const auto* head = reinterpret_cast<const uint8_t*>(&header);
    const auto* rest = reinterpret_cast<const uint8_t*>(body.data());
    std::vector<uint8_t> bytes(head, head + sizeof(header));
    bytes.insert(bytes.end(), rest, rest + body.size() * sizeof(uint32_t));
    Send(bytes.data(), bytes.size(), way);
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
    sendmsg(Socket(Way::kCalls).get(), &message, MSG_NOSIGNAL);
  }

  // The next header that comes that way, its body skipped; type 0 at the end of the connection.
  Header Receive(Way way = Way::kAnswers) const {
    Header header;
    if (recv(Socket(way).get(), &header, sizeof(header), MSG_WAITALL) != sizeof(header)) return {.type = 0};
    std::vector<char> body(header.size);
    if (!body.empty()) recv(Socket(way).get(), body.data(), body.size(), MSG_WAITALL);
    return header;
  }
  bool IsEnded(Way way = Way::kAnswers) const { return Receive(way).type == 0; }
  bool Answers() const {
    Send(Header{.call = 77});
    const Header answer = Receive();
    return answer.type == kReply && answer.call == 77 && answer.code == STATUS_OK;
  }

  void CloseSocket(Way way) { Socket(way).reset(); }

 private:
  android::base::unique_fd& Socket(Way way) { return sockets_[static_cast<size_t>(way)]; }
  const android::base::unique_fd& Socket(Way way) const { return sockets_[static_cast<size_t>(way)]; }

  android::base::unique_fd sockets_[4];
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

inline constexpr uint32_t kOwnObject = 1;   // of who sends it
inline constexpr uint32_t kYourObject = 2;  // of who receives it

// Makes call number 9: of the service's initialize, with an object of its own, the fifth, for callbacks.
inline void CallInitialize(const RawPeer& peer, const std::string& descriptor, const std::string& callbacks) {
  std::vector<uint32_t> body = Words(descriptor);
  const auto offset = static_cast<uint32_t>(4 * body.size());
  body.insert(body.end(), {kOwnObject, 5, 0});
  for (const uint32_t word : Words(callbacks)) body.push_back(word);
  body.push_back(offset);
  const auto size = static_cast<uint32_t>(4 * body.size());
  peer.Send({.size = size, .objects = 1, .call = 9, .target = 1, .code = FIRST_CALL_TRANSACTION + 1}, body);
}

// Calls a method of the service that takes one array of bytes, an empty one here.
inline void Call(const RawPeer& peer, uint64_t call, const std::string& descriptor, int32_t code,
                 Way way = Way::kCalls) {
  std::vector<uint32_t> body = Words(descriptor);
  body.push_back(0);
  peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .call = call, .target = 1, .code = code}, body, way);
}

}  // namespace bthal::test
