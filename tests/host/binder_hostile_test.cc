// Peers that do not keep to the rules: it costs them their connection, and nobody else anything.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <android-base/properties.h>
#include <android-base/unique_fd.h>

#include "host/binder_objects.h"
#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/wait_for.h"

namespace bthal::test {
namespace {

using ::android::base::unique_fd;
using ::ndk::SharedRefBase;

constexpr uint16_t kCall = 1;
constexpr uint16_t kReply = 2;
constexpr uint16_t kRelease = 3;
constexpr int32_t kFindService = 1;
constexpr int32_t kPing = '_' << 24 | 'P' << 16 | 'N' << 8 | 'G';
constexpr int32_t kDump = '_' << 24 | 'D' << 16 | 'M' << 8 | 'P';
constexpr uint32_t kWithDescriptor = 1;

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
  explicit RawPeer(const TempRoot& root) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    for (const auto& entry : std::filesystem::directory_iterator(root.path() + "/run/bthal/binder")) {
      strncpy(address.sun_path, entry.path().c_str(), sizeof(address.sun_path) - 1);
    }
    connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  }

  void Send(const void* bytes, size_t size) const { send(socket_.get(), bytes, size, MSG_NOSIGNAL); }
  void Send(const Header& header, const std::vector<uint32_t>& body = {}) const {
    const auto* head = reinterpret_cast<const uint8_t*>(&header);
    const auto* rest = reinterpret_cast<const uint8_t*>(body.data());
    std::vector<uint8_t> bytes(head, head + sizeof(header));
    bytes.insert(bytes.end(), rest, rest + body.size() * sizeof(uint32_t));
    Send(bytes.data(), bytes.size());
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

  // The next message's header, its body skipped; type 0 at the end of the connection.
  Header Receive() const {
    Header header;
    if (recv(socket_.get(), &header, sizeof(header), MSG_WAITALL) != sizeof(header)) return {.type = 0};
    std::vector<char> body(header.size);
    if (!body.empty()) recv(socket_.get(), body.data(), body.size(), MSG_WAITALL);
    return header;
  }
  bool IsEnded() const { return Receive().type == 0; }
  bool Answers() const {
    Send(Header{.call = 77});
    const Header answer = Receive();
    return answer.type == kReply && answer.call == 77 && answer.code == STATUS_OK;
  }

 private:
  unique_fd socket_;
};

int CountDescriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd) count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

// The words of a string as a parcel has it.
std::vector<uint32_t> Words(const std::string& text) {
  std::vector<uint32_t> words((text.size() + 3) / 4 + 1);
  words[0] = static_cast<uint32_t>(text.size());
  memcpy(&words[1], text.data(), text.size());
  return words;
}

// Connects and asks for the service as a client does; its object is number 1 of this connection then.
RawPeer Client(const TempRoot& root) {
  RawPeer peer(root);
  const std::vector<uint32_t> name = Words(HciInstance());
  peer.Send(Header{.size = static_cast<uint32_t>(4 * name.size()), .code = kFindService}, name);
  const Header answer = peer.Receive();
  EXPECT_EQ(answer.type, kReply);
  EXPECT_EQ(answer.objects, 1);
  return peer;
}

// Calls a method of the service that takes one array of bytes, an empty one here.
void Call(const RawPeer& peer, uint64_t call, int32_t code) {
  std::vector<uint32_t> body = Words(Hci::descriptor);
  body.push_back(0);
  peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .call = call, .target = 1, .code = code}, body);
}

class BinderHostileTest : public ::testing::Test {
 protected:
  BinderHostileTest() {
    ABinderProcess_startThreadPool();
    EXPECT_EQ(Publish(hci_), EX_NONE);
  }

  RawPeer Client() const { return test::Client(root_); }

  const LogCapture log_;
  const TempRoot root_;
  const std::shared_ptr<FakeHci> hci_ = SharedRefBase::make<FakeHci>();
};

TEST_F(BinderHostileTest, MalformedMessagesCostTheConnection) {
  const RawPeer bystander = Client();
  const struct {
    const char* what;
    Header header;
    std::vector<uint32_t> body = {};
  } cases[] = {
      {"no such type", {.type = 9}},
      {"too large", {.size = (1 << 20) + 1}},
      {"huge", {.size = UINT32_MAX}},
      {"more objects than the body can hold", {.size = 4, .objects = 2}, {0}},
      {"too many objects", {.size = 65 * 4, .objects = 65}, std::vector<uint32_t>(65)},
      {"unknown flag", {.flags = 2}},
      {"a descriptor announced for what is no dump", {.flags = kWithDescriptor}},
      {"a dump without a descriptor", {.code = kDump}},
      {"a descriptor announced that does not come", {.code = kDump, .flags = kWithDescriptor}},
      {"an object that was never given", {.target = 4711}},
      {"an answer to nothing", {.type = kReply, .code = 0}},
      {"a reference given back that was never taken", {.type = kRelease, .call = 1, .target = 1}},
      {"nothing given back", {.type = kRelease, .call = 0, .target = 1}},
      {"a body where none belongs", {.size = 4, .type = kRelease, .call = 1, .target = 1}, {0}},
      {"an object beyond the data", {.size = 4, .objects = 1}, {4096}},
      {"an object that is cut off", {.size = 8, .objects = 1}, {1, 0}},
      {"an object at an odd place", {.size = 36, .objects = 1}, {0, 1, 0, 0, 0, 0, 0, 0, 2}},
      {"an object of no kind", {.size = 24, .objects = 1}, {7, 0, 0, 0, 0, 0}},
      {"an object whose name is cut off", {.size = 24, .objects = 1}, {1, 5, 0, 999, 0, 0}},
      {"an own object that is not known", {.size = 24, .objects = 1}, {2, 99, 0, 0, 0, 0}},
      {"objects on one another", {.size = 36, .objects = 2}, {1, 5, 0, 0, 0, 0, 0, 0, 4}},
  };
  for (const auto& [what, header, body] : cases) {
    const RawPeer peer(root_);
    ASSERT_TRUE(peer.Answers()) << what;
    peer.Send(header, body);
    EXPECT_TRUE(peer.IsEnded()) << what;
  }
  // The rest of a message that never comes costs nothing before the peer hangs up.
  {
    const RawPeer peer(root_);
    peer.Send(Header{.size = 1 << 20}, {1, 2, 3});
  }
  EXPECT_TRUE(bystander.Answers());
}

TEST_F(BinderHostileTest, NonsenseForTheObjectIsAnswered) {
  const RawPeer peer = Client();
  const auto answer = [&](int32_t code, const std::vector<uint32_t>& body) {
    peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .target = 1, .code = code}, body);
    return peer.Receive().code;
  };
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION, {}), STATUS_BAD_TYPE);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION, {3, 'a' | 'b' << 8 | 'c' << 16}), STATUS_BAD_TYPE);
  EXPECT_EQ(answer(0, {}), STATUS_UNKNOWN_TRANSACTION);
  EXPECT_EQ(answer(-5, {}), STATUS_UNKNOWN_TRANSACTION);
  std::vector<uint32_t> body = Words(Hci::descriptor);
  EXPECT_EQ(answer(99, body), STATUS_UNKNOWN_TRANSACTION);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION + 3, body), STATUS_NOT_ENOUGH_DATA);
  body.push_back(1000000);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION + 3, body), STATUS_NOT_ENOUGH_DATA);
  body.back() = UINT32_MAX;
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION + 3, body), STATUS_UNEXPECTED_NULL);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION, body), STATUS_OK);
}

TEST_F(BinderHostileTest, DescriptorsThatNobodyAskedForAreClosed) {
  const RawPeer peer = Client();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const int before = CountDescriptors();
  for (int i = 0; i < 10; ++i) {
    peer.SendWithDescriptors(Header{.call = 5}, {ends[1], ends[1], ends[1]});
    EXPECT_EQ(peer.Receive().call, 5u);
    EXPECT_EQ(CountDescriptors(), before);
  }
  // Of a dump's, one is used.
  peer.SendWithDescriptors(Header{.size = 4, .target = 1, .code = kDump, .flags = kWithDescriptor}, {ends[1], ends[1]},
                           {0});
  EXPECT_EQ(peer.Receive().code, STATUS_OK);
  // And one whose message is never completed goes with the connection.
  {
    const RawPeer other(root_);
    other.SendWithDescriptors(Header{.size = 400, .target = 0, .code = kDump, .flags = kWithDescriptor}, {ends[1]});
  }
  EXPECT_TRUE(WaitFor([&] { return CountDescriptors() == before; })) << CountDescriptors() - before;
  close(ends[1]);
  char text[64] = {};
  EXPECT_EQ(read(ends[0], text, sizeof(text)), 6);
  EXPECT_STREQ(text, "dumped");
  EXPECT_EQ(read(ends[0], text, sizeof(text)), 0);
  close(ends[0]);
}

TEST(BinderFloodTest, AFloodOfCallsCostsTheConnection) {
  const TempRoot root;
  ASSERT_EQ(Publish(SharedRefBase::make<FakeHci>()), EX_NONE);
  // More calls than any process has threads, all there before the first is looked at.
  const RawPeer peer(root);
  const std::vector<Header> calls(300);
  peer.Send(calls.data(), calls.size() * sizeof(Header));
  ABinderProcess_startThreadPool();
  EXPECT_TRUE(peer.IsEnded());
  EXPECT_TRUE(RawPeer(root).Answers());
}

// Two processes ask and do not read. One thread serves everybody.
TEST(BinderDeafPeersTest, TheirAnswersWaitForThemAndNobodyElseDoes) {
  constexpr int kDeaf = 2;
  constexpr int kAsked = 8;      // answers of 100 KB: more than a socket takes, less than is kept for a peer
  constexpr int kTooMany = 100;  // more than is kept
  constexpr int32_t kSendHciCommand = FIRST_CALL_TRANSACTION + 3;
  const TempRoot root;
  const Gate ask;
  const Gate read;
  const auto deaf = [&] {
    ask.Pass();
    const RawPeer peer = Client(root);
    for (uint64_t call = 1; call <= kAsked; ++call) Call(peer, call, kSendHciCommand);
    read.Pass();
    for (uint64_t call = 1; call <= kAsked; ++call) {
      if (peer.Receive().call != call) return 1;
    }
    for (uint64_t call = 1; call <= kTooMany; ++call) Call(peer, call, kSendHciCommand);
    ask.Pass();
    // What had been sent before the end can still be read.
    for (uint64_t call = 1; call <= kTooMany; ++call) {
      if (peer.IsEnded()) return 0;
    }
    return 2;
  };
  const Gate work;
  const Gate worked;
  ChildProcess first(deaf);
  ChildProcess second(deaf);
  ChildProcess client([&] {
    const auto hci = FindHci();
    for (;;) {
      if (work.Pass() == 'q') return 0;
      for (int i = 0; i < 100; ++i) {
        if (std::string(hci->sendHciCommand({1, 2, 3}).getMessage()) != "3") return 1;
      }
      worked.Open();
    }
  });
  const LogCapture log;
  std::atomic<int> served{0};
  const auto hci = SharedRefBase::make<FakeHci>();
  hci->on_command = [&](const Bytes& command) {
    const std::string text = command.empty() ? std::string(100'000, 'x') : std::to_string(command.size());
    if (command.empty()) ++served;
    return ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, text.c_str());
  };
  ABinderProcess_setThreadPoolMaxThreadCount(1);
  ABinderProcess_startThreadPool();
  ASSERT_EQ(Publish(hci), EX_NONE);
  for (int i = 0; i < kDeaf; ++i) ask.Open();
  EXPECT_TRUE(WaitFor([&] { return served == kDeaf * kAsked; })) << served;
  work.Open();
  worked.Pass();
  EXPECT_FALSE(log.Has("closing the connection"));
  // They read what waited for them, all of it and in order, and go on to ask for more than is kept.
  for (int i = 0; i < kDeaf; ++i) read.Open();
  EXPECT_TRUE(
      WaitFor([&] { return log.Count("closing the connection to a process: it does not read its answers") == kDeaf; }));
  work.Open();
  worked.Pass();
  for (int i = 0; i < kDeaf; ++i) ask.Open();
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  work.Open('q');
  EXPECT_EQ(client.Wait(), 0);
}

// The service is a plain user's, who has much to ask of it himself; root and a third user come too.
TEST(BinderUserTest, AUserHasAShareAndAStrangerNone) {
  constexpr uid_t kUser = 65534;
  constexpr uid_t kStranger = 65533;
  if (geteuid() != 0) GTEST_SKIP() << "needs to be root, to become others";
  const TempRoot root;
  // As the machine's administrator lays it out.
  const std::string run = root.path() + "/run/bthal";
  std::filesystem::create_directories(run);
  std::filesystem::permissions(run, std::filesystem::perms::owner_all);
  std::filesystem::permissions(root.path(), std::filesystem::perms::all);
  ASSERT_EQ(chown(run.c_str(), kUser, kUser), 0);
  const Gate come;
  ChildProcess admin([&] {
    come.Pass();
    const ::ndk::SpAIBinder found(AServiceManager_checkService(HciInstance().c_str()));
    return found.get() != nullptr && AIBinder_ping(found.get()) == STATUS_OK ? 0 : 1;
  });
  ChildProcess stranger([&] {
    if (setuid(kStranger) != 0) return 1;
    come.Pass();
    if (RawPeer(root).Answers()) return 2;
    const LogCapture log;
    const ::ndk::SpAIBinder found(AServiceManager_checkService(HciInstance().c_str()));
    if (found.get() != nullptr) return 3;
    // Nor does he publish or set anything there.
    if (Publish(SharedRefBase::make<FakeHci>()) == EX_NONE || ::android::base::SetProperty("a", "b")) return 4;
    return log.Has("/run/bthal belongs to user 65534, not to user 65533 or root: it is not used") ? 0 : 5;
  });
  ASSERT_EQ(seteuid(kUser), 0);
  const LogCapture log;
  ABinderProcess_startThreadPool();
  ASSERT_EQ(Publish(SharedRefBase::make<FakeHci>()), EX_NONE);
  // The folder keeps strangers out already; here it does not.
  std::filesystem::permissions(run, std::filesystem::perms::all);
  for (const auto& socket : std::filesystem::directory_iterator(run + "/binder")) {
    std::filesystem::permissions(socket.path(), std::filesystem::perms::all);
  }
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 0; i < 48; ++i) {
    peers.push_back(std::make_unique<RawPeer>(root));
    ASSERT_TRUE(peers.back()->Answers()) << i;
  }
  EXPECT_FALSE(RawPeer(root).Answers());
  EXPECT_TRUE(log.Has("process " + std::to_string(getpid()) + " of user 65534, who may have 48 of 64"));
  come.Open();
  come.Open();
  EXPECT_EQ(admin.Wait(), 0);
  EXPECT_EQ(stranger.Wait(), 0);
  EXPECT_EQ(log.Count("a connection of another user's process is turned away"), 1u);
  EXPECT_TRUE(log.Has(" of user 65533"));
  EXPECT_TRUE(peers.front()->Answers());
  peers.pop_back();
  EXPECT_TRUE(RawPeer(root).Answers());
  EXPECT_EQ(seteuid(0), 0);
}

}  // namespace
}  // namespace bthal::test
