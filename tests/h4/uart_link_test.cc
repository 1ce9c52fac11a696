// The line of the UART being taken away under those who stand on it.
#include "h4/uart_link.h"

#include "h4/write_watchdog.h"
#include "support/pty.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci {
namespace {

using namespace ::bthal::test;

constexpr uint8_t kAcl = 0x02;
const std::vector<uint8_t> kLarge(16384, 0x55);

const Consumers kNobody = {[](const HciPacket&) {}, [](const HciPacket&) {}, [](const HciPacket&) {},
                           [](const HciPacket&) {}, nullptr};

// Both ends of a line that nobody reads: a pseudo-terminal, or a socket, which no terminal call flushes.
struct DeafLine {
  explicit DeafLine(bool is_socket) {
    if (is_socket) {
      int ends[2];
      CHECK_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
      host.reset(ends[0]);
      peer.reset(ends[1]);
    } else {
      host.reset(open(pty.host_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    }
  }

  Pty pty;
  unique_fd host;
  unique_fd peer;
};

class DeafLineTest : public ::testing::TestWithParam<bool> {
 protected:
  ~DeafLineTest() override {
    link_.Detach();
    link_.StopReceiving();
  }

  LogCapture log_;
  DeafLine line_{GetParam()};
  UartLink& link_ = UartLink::Get();
};

TEST_P(DeafLineTest, AStuckSenderIsLetGo) {
  link_.Attach(line_.host.get(), kNobody, {});
  auto sender = std::async(std::launch::async, [&] {
    while (link_.Send(kAcl, kLarge.data(), kLarge.size()) == kLarge.size() + 1) continue;
  });
  EXPECT_TRUE(WaitFor([&] { return !link_.WaitForSenders(milliseconds(50)); }));
  link_.Detach();
  EXPECT_EQ(sender.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_TRUE(link_.WaitForSenders(milliseconds(0)));
  EXPECT_EQ(link_.Send(kAcl, kLarge.data(), kLarge.size()), 0u);
}

INSTANTIATE_TEST_SUITE_P(SocketOrNot, DeafLineTest, ::testing::Bool());

TEST(UartLinkTest, WithoutALineNothingIsWatchedAndNothingSent) {
  UartLink& link = UartLink::Get();
  EXPECT_FALSE(link.Watch(std::make_shared<int>()));
  EXPECT_EQ(link.Send(kAcl, kLarge.data(), kLarge.size()), 0u);
  EXPECT_TRUE(link.WaitForSenders(milliseconds(0)));
}

TEST(UartLinkTest, AConsumerThatDoesNotReturnIsNotWaitedForAndReadsNoMore) {
  LogCapture log;
  const Pty line;
  const unique_fd host(open(line.host_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<int> events{0};
  Consumers consumers = kNobody;
  consumers.event_cb = [&, left = leave.get_future().share()](const HciPacket&) {
    if (events++ == 0) entered.set_value();
    left.wait();
  };
  const auto receiver = std::make_shared<int>();
  UartLink& link = UartLink::Get();
  link.Attach(host.get(), consumers, {});
  ASSERT_TRUE(link.Watch(receiver));
  line.Write({0x04, 0x10, 0x01, 0x01});
  entered.get_future().wait();

  link.Detach(milliseconds(20));
  link.StopReceiving(milliseconds(20));
  EXPECT_EQ(log.Count("a received packet is still being delivered, going on without the receive thread"), 2u);
  const std::weak_ptr<int> still_used = receiver;

  // A new line gets a thread of its own, while the old one still stands in its consumer.
  std::promise<void> heard;
  Consumers next = kNobody;
  next.event_cb = [&](const HciPacket&) { heard.set_value(); };
  link.Attach(host.get(), next, {});
  ASSERT_TRUE(link.Watch(receiver));
  line.Write({0x04, 0x10, 0x01, 0x02});
  heard.get_future().wait();
  leave.set_value();
  link.Detach();
  link.StopReceiving();
  EXPECT_EQ(events, 1);
}

TEST(WriteWatchdogTest, ReportsAStallOnceAndNamesThePacket) {
  constexpr milliseconds kLimit{50};
  const std::vector<uint8_t> packet = {0x03, 0x2C, 0x00};
  const std::pair<uint8_t, const char*> kPackets[] = {{0x01, "command 0x2C03"},
                                                      {0x02, "ACL packet of handle 0xC03"},
                                                      {0x03, "SCO packet of handle 0xC03"},
                                                      {0x05, "ISO packet of handle 0xC03"},
                                                      {0x70, "Thread frame"},
                                                      {0x66, "packet of type 102"}};
  for (const auto& [type, name] : kPackets) {
    std::promise<std::string> reported;
    std::atomic<int> reports{0};
    WriteWatchdog watchdog(
        [&](const std::string& what) {
          if (reports++ == 0) reported.set_value(what);
        },
        kLimit);
    {
      WriteWatchdog::Write write(watchdog, type, packet.data(), packet.size());
      write.Progress(2);
      EXPECT_EQ(reported.get_future().get(), std::string(name) + ": 2/4 bytes written, no progress for 50 ms");
    }
    EXPECT_EQ(reports, 1);
  }
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci
