// Packets of one read, which travel to the client together: nothing that anybody sees is to come of it.
#include <poll.h>

#include "aidl/bluetooth_hci/callbacks.h"
#include "aidl/bluetooth_hci/client.h"
#include "hci_flow_control/hci_channel.h"
#include "host/binder_objects.h"
#include "support/board_session.h"
#include "support/diagnostics.h"
#include "support/pty.h"
#include "support/test.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using namespace ::bthal::test;

// LE Meta event of no known kind, told apart by its last byte:
//   04 | 3E | length | subevent | number
Bytes Event(uint8_t number) { return {4, 0x3E, 2, 0x7F, number}; }
Bytes Acl(uint8_t number) { return {2, 0x40, 0x20, 1, 0, number}; }
Bytes Sco(uint8_t number) { return {3, 0x41, 0, 1, number}; }
Bytes Iso(uint8_t number) { return {5, 0x42, 0, 1, 0, number}; }
// Command Complete of Reset.
const Bytes kResetDone = {4, 0x0E, 4, 1, 0x03, 0x0C, 0};

// A real client in another process, a real port, and what is between them in this one.
class GatheredPacketsTest : public BinderTest {
 protected:
  GatheredPacketsTest() {
    EXPECT_EQ(symlink(uart_.host_path().c_str(), root_.Below("/dev/ttySAC16").c_str()), 0);
    Accelerate(false);
  }
  ~GatheredPacketsTest() override {
    leave_.Open();
    hci::channel::Deinitialize();
    DisconnectClient();
  }

  // The client tells of each packet, by its last byte, from inside the callback.
  class Client : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
   public:
    Client(std::shared_ptr<Hci> hci, const Gate& leave) : hci_(std::move(hci)), leave_(leave) {}
    ScopedAStatus initializationComplete(HciStatus) override { return ScopedAStatus::ok(); }
    ScopedAStatus hciEventReceived(const Bytes& event) override { return Tell(event); }
    ScopedAStatus aclDataReceived(const Bytes& data) override { return Tell(data); }
    ScopedAStatus scoDataReceived(const Bytes& data) override { return Tell(data); }
    ScopedAStatus isoDataReceived(const Bytes& data) override { return Tell(data); }

   private:
    ScopedAStatus Tell(const Bytes& packet) {
      auto told = hci_->sendHciCommand({packet.back()});
      if (packet.back() == kBlocks) leave_.Pass();
      return told;
    }

    const std::shared_ptr<Hci> hci_;
    const Gate& leave_;
  };
  // What the client does not return from until `leave_` opens, and what it closes upon.
  static constexpr uint8_t kBlocks = 0xB1;
  static constexpr uint8_t kCloses = 0xC1;

  void Connect() {
    hci_->on_initialize = [](const auto& callbacks) {
      ConnectClient(callbacks);
      return ScopedAStatus::ok();
    };
    hci_->on_command = [this](const Bytes& told) {
      if (told[0] == kCloses) DisconnectClient();
      const std::lock_guard lock(mutex_);
      heard_.push_back(told[0]);
      return ScopedAStatus::ok();
    };
    ASSERT_NO_FATAL_FAILURE(Serve());
    go_.Open();
    ASSERT_TRUE(WaitFor([] { return ConnectedClient() != nullptr; }));
    flow_ = hci::channel::InitializeHciHandle({.event_cb = EventCallback,
                                               .acl_cb = AclCallback,
                                               .sco_cb = ScoCallback,
                                               .iso_cb = IsoCallback,
                                               .more_to_come_cb = MoreToCome});
    ASSERT_NE(flow_, nullptr);
  }

  // All in one write, so that one read has them.
  void Send(const std::vector<Bytes>& packets) const {
    Bytes stream;
    for (const Bytes& packet : packets) stream.insert(stream.end(), packet.begin(), packet.end());
    ASSERT_EQ(write(uart_.controller(), stream.data(), stream.size()), static_cast<ssize_t>(stream.size()));
  }

  Bytes Heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  bool Hears(const Bytes& all) const {
    return WaitFor([&] { return Heard() == all; });
  }

  const Pty uart_;
  const Gate go_;
  const Gate leave_;
  const ChildProcess client_{[this] {
    go_.Pass();
    const auto callbacks = SharedRefBase::make<Client>(FindHci(), leave_);
    ABinderProcess_startThreadPool();
    if (!FindHci()->initialize(callbacks).isOk()) return 1;
    pause();
    return 0;
  }};
  hci::HciFlowControl* flow_ = nullptr;
  LogCapture log_;
  mutable std::mutex mutex_;
  Bytes heard_;
};

TEST_F(GatheredPacketsTest, AllKindsComeInTheirOrderHoweverMany) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  std::vector<Bytes> packets;
  Bytes numbers;
  for (uint8_t i = 0; i < 160; i += 4) {
    for (const Bytes& packet : {Event(i), Acl(i + 1), Sco(i + 2), Iso(i + 3)}) packets.push_back(packet);
  }
  for (uint8_t i = 0; i < 160; ++i) numbers.push_back(i);
  ASSERT_NO_FATAL_FAILURE(Send(packets));
  EXPECT_TRUE(Hears(numbers)) << ::testing::PrintToString(Heard());
}

// The next command goes when the client has returned from the answer to the one before, and from all before that.
TEST_F(GatheredPacketsTest, AnAnswerActsWhenTheClientHasAllThatCameBefore) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const Bytes reset = {0x03, 0x0C, 0};
  for (int i = 0; i < 2; ++i) flow_->Send(1, reset.data(), reset.size());
  Bytes wire(4);
  ASSERT_EQ(read(uart_.controller(), wire.data(), wire.size()), 4);
  ASSERT_NO_FATAL_FAILURE(Send({Event(1), Event(kBlocks), kResetDone, Event(2)}));
  ASSERT_TRUE(Hears({1, kBlocks}));
  pollfd second{uart_.controller(), POLLIN, 0};
  EXPECT_EQ(poll(&second, 1, 0), 0) << "the second command went before the client had the first one's answer";
  leave_.Open();
  EXPECT_EQ(read(uart_.controller(), wire.data(), wire.size()), 4);
  EXPECT_TRUE(Hears({1, kBlocks, 0, 2}));
}

// What comes up of one that does not return stands open in the record.
TEST_F(GatheredPacketsTest, ACallbackThatDoesNotReturnShowsInTheRecord) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  // As many as travel together, and one.
  std::vector<Bytes> packets(14, Event(1));
  packets.insert(packets.end(), {Event(kBlocks), Acl(2), Event(3)});
  ASSERT_NO_FATAL_FAILURE(Send(packets));
  Bytes heard(14, 1);
  heard.push_back(kBlocks);
  ASSERT_TRUE(Hears(heard));
  const auto count = [](const std::string& text) {
    const auto lines = DumpSection("Anchors' History");
    return std::ranges::count_if(lines, [&](const std::string& line) { return line.find(text) != line.npos; });
  };
  EXPECT_EQ(count("cb->hciEventReceived: 4 bytes [ IN]"), 15);
  EXPECT_EQ(count(" bytes [OUT]"), 0);
  leave_.Open();
  heard.insert(heard.end(), {2, 3});
  ASSERT_TRUE(Hears(heard));
  EXPECT_TRUE(WaitFor([&] { return count(" bytes [OUT]") == 17; }));
  EXPECT_EQ(count("cb->aclDataReceived: 5 bytes [OUT]"), 1);
}

// Whoever is no longer the client hears nothing more, though it has been sent.
TEST_F(GatheredPacketsTest, AClientThatClosesFromInsideHearsNothingMore) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ASSERT_NO_FATAL_FAILURE(Send({Event(1), Event(kCloses), Event(2), Acl(3)}));
  ASSERT_TRUE(WaitFor([&] { return log_.HasThrottled("aclData: g_cb == nullptr"); }));
  EXPECT_EQ(Heard(), (Bytes{1, kCloses}));
  EXPECT_EQ(log_.Count("Unable to callback"), 0u);
}

TEST_F(GatheredPacketsTest, AClientThatGoesMeanwhileGetsNothingOfWhatWasKept) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const auto client = ConnectedClient();
  const Bytes event = Event(1);
  const Bytes packet(event.begin() + 1, event.end());
  MoreToCome(true);
  EventCallback(packet);
  DisconnectClient();
  MoreToCome(false);
  EXPECT_TRUE(log_.Has("hciEvent: g_cb == nullptr"));
  ConnectClient(client);
  EventCallback(packet);  // not kept, so that all has been heard now
  EXPECT_EQ(Heard(), Bytes{1});
}

TEST_F(GatheredPacketsTest, AClientThatDiesInTheMiddleIsComplainedOf) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ASSERT_NO_FATAL_FAILURE(Send({Event(kBlocks), Acl(1)}));
  ASSERT_TRUE(Hears({kBlocks}));
  kill(client_.pid(), SIGKILL);
  EXPECT_TRUE(WaitFor([&] { return log_.HasThrottled("Unable to callback hciEvent to Stack"); }));
  EXPECT_TRUE(WaitFor([&] { return log_.HasThrottled("Unable to callback aclData to Stack"); }));
}

}  // namespace
}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
