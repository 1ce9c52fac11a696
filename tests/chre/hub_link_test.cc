// Both ways to the hub: its socket, and the platform's client library, which is played here by a pair of sockets.
#include <sys/eventfd.h>

#include "chre/hub_link.h"
#include "chre/hub_message.h"
#include "conf/userial_type.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace {

struct Handle {
  bthal::test::unique_fd socket, interruption;
};

bool g_there = false;
int g_closed = 0;
bthal::test::unique_fd g_hub;  // its end of the latest connection

int PollFor(std::initializer_list<pollfd> what, int timeout_ms) {
  std::vector<pollfd> watched(what);
  const int ready = poll(watched.data(), watched.size(), timeout_ms);
  if (ready == 0) errno = ETIMEDOUT;
  return ready > 0 ? 0 : -1;
}

}  // namespace

extern "C" {

void* bthal_usf_connect() {
  errno = ECONNREFUSED;
  if (!g_there) return nullptr;
  int ends[2];
  CHECK_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  g_hub.reset(ends[1]);
  return new Handle{bthal::test::unique_fd(ends[0]), bthal::test::unique_fd(eventfd(0, EFD_NONBLOCK))};
}

int bthal_usf_send(void* handle, const uint8_t* message, size_t size, int timeout_ms) {
  const int fd = static_cast<Handle*>(handle)->socket.get();
  if (PollFor({{fd, POLLOUT, 0}}, timeout_ms) != 0) return -1;
  return send(fd, message, size, MSG_NOSIGNAL) < 0 ? -1 : 0;
}

ssize_t bthal_usf_receive(void* handle, uint8_t* message, size_t room, int timeout_ms) {
  const auto& [socket, interruption] = *static_cast<Handle*>(handle);
  if (PollFor({{socket.get(), POLLIN, 0}, {interruption.get(), POLLIN, 0}}, timeout_ms) != 0) return -1;
  uint64_t count = 0;
  if (read(interruption.get(), &count, sizeof(count)) < 0) return recv(socket.get(), message, room, MSG_TRUNC);
  errno = EINTR;
  return -1;
}

void bthal_usf_interrupt(void* handle) {
  const uint64_t one = 1;
  CHECK_EQ(write(static_cast<Handle*>(handle)->interruption.get(), &one, sizeof(one)), 8);
}

void bthal_usf_close(void* handle) {
  delete static_cast<Handle*>(handle);
  ++g_closed;
}

}  // extern "C"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using namespace ::bthal::test;
using Event = HubLink::Event;

unique_fd Listen(const TempRoot& root) {
  const std::string path = root.Below(std::string(conf::kSensorHubFolder) + "/" + conf::kSensorHubSocket);
  unique_fd listener = ListenAt(path, SOCK_SEQPACKET);
  chmod(path.c_str(), 0777);
  return listener;
}

enum class Way { kSocket, kLibrary };

class HubLinkTest : public ::testing::TestWithParam<Way> {
 protected:
  static bool is_library() { return GetParam() == Way::kLibrary; }

  // From now on there is a hub.
  void StartHub() {
    g_there = true;
    listener_ = Listen(root_);
  }
  void Connect() {
    std::string why;
    ASSERT_EQ(link_->Connect(&why), HubLink::Connected::kYes) << why;
    if (!is_library()) g_hub.reset(accept(listener_.get(), nullptr, nullptr));
  }
  bool Send(const Bytes& message, milliseconds patience = seconds(20)) {
    return link_->Send(message, patience, give_up_);
  }
  static void HubSends(const Bytes& message) {
    EXPECT_EQ(send(g_hub.get(), message.data(), message.size(), 0), static_cast<ssize_t>(message.size()));
  }

  TempRoot root_;
  unique_fd listener_;
  std::atomic<bool> give_up_{false};
  Bytes received_;
  const std::unique_ptr<HubLink> link_ = is_library() ? MakePlatformLink() : MakeSocketLink();
};

TEST_P(HubLinkTest, CarriesWholeMessagesBothWaysUntilTheEnd) {
  std::string why;
  EXPECT_EQ(link_->Connect(&why), HubLink::Connected::kNotYet);
  EXPECT_THAT(why, is_library() ? MatchesRegex("the sensor hub's client library does not connect: .* refused \\(111\\)")
                                : MatchesRegex("no sensor hub at .*: No such file or directory \\(2\\)"));
  EXPECT_EQ(link_->Wait(&received_, std::nullopt), Event::kHungUp);
  EXPECT_FALSE(Send({1}));
  EXPECT_EQ(errno, ENOTCONN);

  StartHub();
  Connect();
  EXPECT_TRUE(Send({1, 2, 3}));
  Bytes sent(10);
  EXPECT_EQ(recv(g_hub.get(), sent.data(), sent.size(), 0), 3);
  EXPECT_EQ(link_->Wait(&received_, milliseconds(1)), Event::kTimeout);
  const Bytes largest(kMaxMessage, 0x55);
  HubSends(largest);
  HubSends(Bytes(kMaxMessage + 1));
  HubSends({7});
  EXPECT_EQ(link_->Wait(&received_, std::nullopt), Event::kMessage);
  EXPECT_EQ(received_, largest);
  EXPECT_EQ(link_->Wait(&received_, std::nullopt), Event::kTooLarge);
  EXPECT_EQ(link_->Wait(&received_, std::nullopt), Event::kMessage);
  EXPECT_THAT(received_, ElementsAre(7));
  link_->Interrupt();
  EXPECT_EQ(link_->Wait(&received_, std::nullopt), Event::kInterrupted);
  EXPECT_TRUE(Send({4}));
  g_hub.reset();  // unread, which is told as an error first
  EXPECT_EQ(link_->Wait(&received_, std::nullopt), Event::kHungUp);
  EXPECT_EQ(link_->Wait(&received_, std::nullopt), Event::kHungUp);
  EXPECT_FALSE(Send({1}));
  EXPECT_EQ(errno, EPIPE);
  link_->Disconnect();
  EXPECT_EQ(g_closed, is_library() ? 1 : 0);
}

TEST_P(HubLinkTest, AHubThatTakesNothingIsWaitedForUntilThePatienceEndsOrIsGivenUp) {
  StartHub();
  Connect();
  const Bytes message(kMaxMessage);
  while (Send(message, milliseconds(10))) continue;
  EXPECT_EQ(errno, ETIMEDOUT);
  const auto start = steady_clock::now();
  EXPECT_FALSE(Send(message, milliseconds(30)));
  EXPECT_GE(steady_clock::now() - start, milliseconds(30));
  give_up_ = true;
  EXPECT_FALSE(Send(message));
  EXPECT_EQ(errno, ECANCELED);
}

INSTANTIATE_TEST_SUITE_P(Ways, HubLinkTest, ::testing::Values(Way::kSocket, Way::kLibrary),
                         [](const auto& way) { return way.param == Way::kSocket ? "Socket" : "Library"; });

// Whether a service of `user` takes a hub that `player` plays, where everybody may.
HubLink::Connected ConnectAs(uid_t user, uid_t player, std::string* why) {
  const TempRoot root;
  root.Below(std::string(conf::kSensorHubFolder) + "/x");
  chmod(root.path().c_str(), 0777);
  chmod((root.path() + conf::kSensorHubFolder).c_str(), 0777);
  const uid_t before = geteuid();
  EXPECT_EQ(seteuid(player), 0);
  const unique_fd listener = Listen(root);
  EXPECT_EQ(seteuid(before), 0);
  EXPECT_EQ(seteuid(user), 0);
  const HubLink::Connected connected = MakeSocketLink()->Connect(why);
  EXPECT_EQ(seteuid(before), 0);
  return connected;
}

TEST(HubSocketTest, IsPlayedByTheServicesOwnUserOrRoot) {
  constexpr uid_t kUser = 65534;
  constexpr uid_t kStranger = 65533;
  std::string why;
  EXPECT_EQ(ConnectAs(geteuid(), geteuid(), &why), HubLink::Connected::kYes) << why;
  if (geteuid() != 0) GTEST_SKIP() << "needs to be root, to become others";
  EXPECT_EQ(ConnectAs(kUser, kUser, &why), HubLink::Connected::kYes) << why;
  EXPECT_EQ(ConnectAs(kUser, 0, &why), HubLink::Connected::kYes) << why;
  for (const uid_t user : {kUser, uid_t{0}}) {
    EXPECT_EQ(ConnectAs(user, kStranger, &why), HubLink::Connected::kNotYet);
    EXPECT_THAT(why, ContainsRegex("^no sensor hub at .*/run/bthal/sensor-hub: a process of user 65533 listens there, "
                                   "not one of user " +
                                   std::to_string(user) + " or root$"));
  }
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci::hub
