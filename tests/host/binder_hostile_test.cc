// Peers that do not keep to the rules: it costs them their connection, and nobody else anything.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "support/binder_objects.h"
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
  bool SendWithoutWaiting(const Header& header) const {
    return send(socket_.get(), &header, sizeof(header), MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof(header);
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

class BinderHostileTest : public ::testing::Test {
 protected:
  BinderHostileTest() {
    ABinderProcess_startThreadPool();
    EXPECT_EQ(Publish(hci_), EX_NONE);
  }

  // Asks for the service as a client does; its object is number 1 of this connection then.
  RawPeer Client() const {
    RawPeer peer(root_);
    const std::string name = HciInstance();
    std::vector<uint32_t> body((name.size() + 3) / 4 + 1);
    body[0] = static_cast<uint32_t>(name.size());
    memcpy(&body[1], name.data(), name.size());
    peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .code = kFindService}, body);
    const Header answer = peer.Receive();
    EXPECT_EQ(answer.type, kReply);
    EXPECT_EQ(answer.objects, 1);
    return peer;
  }

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
  const std::string name = Hci::descriptor;
  std::vector<uint32_t> body((name.size() + 3) / 4 + 1);
  body[0] = static_cast<uint32_t>(name.size());
  memcpy(&body[1], name.data(), name.size());
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

TEST_F(BinderHostileTest, ThereAreNoMoreThanSixtyFourConnections) {
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 0; i < 64; ++i) {
    peers.push_back(std::make_unique<RawPeer>(root_));
    ASSERT_TRUE(peers.back()->Answers()) << i;
  }
  EXPECT_TRUE(RawPeer(root_).IsEnded());
  EXPECT_TRUE(log_.Has("a connection is turned away: there are 64 already"));
  EXPECT_TRUE(peers.front()->Answers());
  peers.pop_back();
  EXPECT_TRUE(RawPeer(root_).Answers());
}

TEST_F(BinderHostileTest, APeerThatStopsReadingStopsNobodyElse) {
  const RawPeer deaf = Client();
  const RawPeer other = Client();
  const auto died = [&] { return log_.Has("it does not take what is written to it"); };
  // It asks on until neither direction takes any more. While somebody is stuck with its answers, others get theirs.
  std::thread asking([&] {
    WaitFor([&] {
      deaf.SendWithoutWaiting(Header{.call = 9});
      return died() || log_.Has("a message that makes no sense");
    });
  });
  EXPECT_TRUE(WaitFor([&] { return other.Answers() && (died() || log_.Has("a message that makes no sense")); }));
  asking.join();
  EXPECT_TRUE(other.Answers());
}

TEST_F(BinderHostileTest, AFloodOfCallsCostsTheConnection) {
  hci_->on_close = [] {
    static auto& never = *new Gate;  // the threads are still there when the test is over
    never.Pass();
    return ScopedAStatus::ok();
  };
  const RawPeer peer = Client();
  const std::string name = Hci::descriptor;
  std::vector<uint32_t> body((name.size() + 3) / 4 + 1);
  body[0] = static_cast<uint32_t>(name.size());
  memcpy(&body[1], name.data(), name.size());
  // More calls than any process has threads, none of them answered yet.
  for (int i = 0; i < 1000; ++i) {
    peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .target = 1, .code = FIRST_CALL_TRANSACTION},
              body);
  }
  EXPECT_TRUE(peer.IsEnded());
}

// Without a device root, where the places are those of the whole machine.
TEST(BinderUserTest, AnotherUsersProcessIsTurnedAway) {
  if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", "/run", "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "needs to be root and to have a /run of its own";
  }
  unsetenv("BTHAL_ROOT");
  const Gate go;
  const auto look = [&] {
    go.Pass();
    ABinderProcess_startThreadPool();
    const ::ndk::SpAIBinder binder(AServiceManager_checkService(HciInstance().c_str()));
    return binder.get() == nullptr ? 1 : 0;
  };
  ChildProcess own(look);
  ChildProcess stranger([&] { return setgid(65534) != 0 || setuid(65534) != 0 ? 2 : look(); });
  const LogCapture log;
  ABinderProcess_startThreadPool();
  ASSERT_EQ(Publish(SharedRefBase::make<FakeHci>()), EX_NONE);
  EXPECT_EQ(std::filesystem::status("/run/bthal").permissions(), std::filesystem::perms::owner_all);
  // The folder keeps strangers out already; here it does not.
  std::filesystem::permissions("/run/bthal", std::filesystem::perms::all);
  for (const auto& socket : std::filesystem::directory_iterator("/run/bthal/binder")) {
    std::filesystem::permissions(socket.path(), std::filesystem::perms::all);
  }
  go.Open();
  go.Open();
  EXPECT_EQ(own.Wait(), 0);
  EXPECT_EQ(stranger.Wait(), 1);
  EXPECT_EQ(log.Count("a connection of another user's process is turned away"), 1u);
}

}  // namespace
}  // namespace bthal::test
