#include "aidl/bluetooth_hci/callbacks.h"
#include "aidl/bluetooth_hci/client.h"

#include "bluetooth_Activity.h"
#include "support/btsnoop_file.h"
#include "support/diagnostics.h"
#include "support/hal_client.h"
#include "support/test.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using namespace ::bthal::test;

// As the file shows a packet: its flags (bit 0: from the controller, bit 1: command or event), its type and its bytes.
struct Logged {
  uint32_t flags;
  uint8_t type;
  Bytes packet;
  bool operator==(const Logged&) const = default;
};
constexpr uint32_t kToHost = 1;
constexpr uint32_t kToController = 0;
constexpr uint32_t kEventFlags = 3;

class PacketCallbacksTest : public ::testing::Test {
 protected:
  PacketCallbacksTest() { ConnectClient(client_); }
  ~PacketCallbacksTest() override {
    VndSnoopLogger::Get().Stop();
    DisconnectClient();
  }

  void SwitchSnoopLog(bool on) {
    root_.Below("/data/vendor/bluetooth/x");
    SetProperty("persist.bluetooth.vendor.btsnoop", on ? "true" : "false");
    SetProperty("persist.bluetooth.btsnooplogmode", "full");
    VndSnoopLogger::Get().Start();
    ASSERT_EQ(VndSnoopLogger::Get().is_logging(), on);
  }

  // What the log has gained since the last call.
  std::vector<Logged> NewlyLogged() {
    std::vector<Logged> logged;
    const auto file = ParseSnoopFile(root_.Read("/data/vendor/bluetooth/btsnoop_hci_vnd.log"));
    if (!file) return logged;
    for (size_t i = seen_; i < file->records.size(); ++i) {
      const auto& record = file->records[i];
      logged.push_back({record.flags, record.type, Bytes(record.packet.begin(), record.packet.end())});
    }
    seen_ = file->records.size();
    return logged;
  }

  LogCapture log_;
  TempRoot root_;
  std::shared_ptr<RecordingCallbacks> client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  size_t seen_ = 0;
};

// Number Of Completed Packets: 13 | length 5 | one handle | handle (2) | count (2)
Bytes Completed(uint8_t handle_high) { return {0x13, 5, 1, 0x05, handle_high, 1, 0}; }

TEST_F(PacketCallbacksTest, MarkedCompletionsAreLoggedWithoutTheirMarkAndKept) {
  SwitchSnoopLog(true);
  struct Case {
    uint8_t received;
    uint8_t logged;
    bool delivered;
  };
  for (const Case& c : {Case{0x0F, 0x00, false},
                        {0x0E, 0x00, false},
                        {0x3E, 0x30, false},
                        {0x1F, 0x10, false},
                        {0x00, 0x00, true},
                        {0x0D, 0x0D, true},
                        {0x0C, 0x0C, true},
                        {0xE0, 0xE0, true}}) {
    const size_t before = client_->Events().size();
    EventCallback(Completed(c.received));
    EXPECT_THAT(NewlyLogged(), ElementsAre(Logged{kEventFlags, 4, Completed(c.logged)})) << int{c.received};
    EXPECT_EQ(client_->Events().size() - before, c.delivered ? 1U : 0U) << int{c.received};
  }
}

TEST_F(PacketCallbacksTest, OtherAndShortEventsPassWithOrWithoutTheLog) {
  const Bytes short_completion = {0x13, 2, 1, 0x0F};
  const Bytes vendor = {0xFF, 3, 0x58, 0x0F, 0x0F};
  for (const bool on : {true, false}) {
    SwitchSnoopLog(on);
    client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
    ConnectClient(client_);
    EventCallback(short_completion);
    EventCallback(vendor);
    if (!on) EventCallback(Completed(0x0F));
    EXPECT_EQ(client_->Events().size(), on ? 2U : 3U);
    if (!on) continue;
    EXPECT_THAT(NewlyLogged(), ElementsAre(Logged{kEventFlags, 4, short_completion}, Logged{kEventFlags, 4, vendor}));
  }
}

// ACL: handle and flags (2) | length (2) | payload
Bytes Acl(uint8_t low, uint8_t high) { return {low, high, 1, 0, 0xAA}; }

TEST_F(PacketCallbacksTest, AclMarksDecideWhatIsLoggedAndWhatIsDelivered) {
  SwitchSnoopLog(true);
  AclCallback(Acl(0x05, 0x20));  // the stack's own: delivered, not logged
  EXPECT_THAT(NewlyLogged(), IsEmpty());
  EXPECT_THAT(client_->Acl(), ElementsAre(Acl(0x05, 0x20)));

  AclCallback(Acl(0x05, 0x2F));  // sent by the controller itself: logged as sent, without the mark
  AclCallback(Acl(0xF1, 0x0F));  // diagnostics: logged as they are
  AclCallback(Acl(0xF1, 0x2F));
  AclCallback(Acl(0xDD, 0x0D));
  EXPECT_THAT(NewlyLogged(), ElementsAre(Logged{kToController, 2, Acl(0x05, 0x20)}, Logged{kToHost, 2, Acl(0xF1, 0x0F)},
                                         Logged{kToHost, 2, Acl(0xF1, 0x2F)}, Logged{kToHost, 2, Acl(0xDD, 0x0D)}));
  EXPECT_EQ(client_->Acl().size(), 1U);

  SwitchSnoopLog(false);
  AclCallback(Acl(0x05, 0x2F));
  AclCallback(Acl(0xDD, 0x0D));
  AclCallback(Acl(0xF1, 0x0F));  // never the stack's
  EXPECT_THAT(client_->Acl(), ElementsAre(Acl(0x05, 0x20), Acl(0x05, 0x2F), Acl(0xDD, 0x0D)));
}

TEST_F(PacketCallbacksTest, IsoMarksTellSentFromReceived) {
  SwitchSnoopLog(true);
  IsoCallback(Acl(0x05, 0x2E));  // sent by the controller itself
  IsoCallback(Acl(0x05, 0x2F));
  IsoCallback(Acl(0x05, 0x2D));  // received and consumed by the controller
  IsoCallback(Acl(0x05, 0x21));  // the stack's
  EXPECT_THAT(NewlyLogged(),
              ElementsAre(Logged{kToController, 5, Acl(0x05, 0x20)}, Logged{kToController, 5, Acl(0x05, 0x21)},
                          Logged{kToHost, 5, Acl(0x05, 0x20)}, Logged{kToHost, 5, Acl(0x05, 0x21)}));
  EXPECT_THAT(client_->Iso(), ElementsAre(Acl(0x05, 0x21)));

  SwitchSnoopLog(false);
  IsoCallback(Acl(0x05, 0x2E));
  IsoCallback(Acl(0x05, 0x2D));
  EXPECT_EQ(client_->Iso().size(), 3U);
}

TEST_F(PacketCallbacksTest, ScoIsAlwaysLoggedAndDelivered) {
  SwitchSnoopLog(true);
  ScoCallback(Bytes{0x05, 0x0F, 1, 0xAA});
  EXPECT_THAT(NewlyLogged(), ElementsAre(Logged{kToHost, 3, {0x05, 0x0F, 1, 0xAA}}));
  EXPECT_THAT(client_->Sco(), ElementsAre(Bytes{0x05, 0x0F, 1, 0xAA}));
}

// A client that refuses, and none at all: packets are dropped with a warning for each kind, and each leaves its
// mark.
TEST_F(PacketCallbacksTest, WhatCannotBeDeliveredIsDroppedWithAWarning) {
  const auto send_all = [] {
    EventCallback(Bytes{0x0E, 4, 1, 3, 12, 0});
    AclCallback(Acl(1, 0));
    ScoCallback(Bytes{1, 0, 0});
    IsoCallback(Acl(1, 0));
    NotifyCallback(Bytes{0xFF, 4, 0x58, 5, 0, 1});
  };
  const auto send_many = [&] {
    for (int i = 0; i < 100; ++i) send_all();
  };
  client_->Fail(true);
  send_many();
  for (const char* line : {"Unable to callback hciEvent to Stack", "Unable to callback aclData to Stack",
                           "Unable to callback scoData to Stack", "Unable to callback isoData to Stack",
                           "Unable to callback bqr root inflamed event to Stack"}) {
    EXPECT_TRUE(log_.HasThrottled(line)) << line;
  }
  DisconnectClient();
  send_many();
  for (const char* line : {"hciEvent: g_cb == nullptr", "aclData: g_cb == nullptr", "scoData: g_cb == nullptr",
                           "isoData: g_cb == nullptr", "notify_cb: g_cb == nullptr"}) {
    EXPECT_TRUE(log_.HasThrottled(line)) << line;
  }
  ThreadCallback(Bytes{0, 0, 0, 0}, nullptr);
  EXPECT_TRUE(log_.Has("ThreadCallback: [bthal.thread_dispatcher] Unable to callback Thread data to Thread HAL."));

  std::string history;
  for (const std::string& line : DumpSection("Anchors' History")) history += line + "\n";
  for (const char* text : {"cb->hciEventReceived: 6 bytes [ IN]", "cb->hciEventReceived: 6 bytes [OUT]",
                           "cb->aclDataReceived: 5 bytes [ IN]", "cb->scoDataReceived: 3 bytes [ IN]",
                           "cb->isoDataReceived: 5 bytes [ IN]", "SendThreadFrame: 4 bytes [ IN]"}) {
    EXPECT_THAT(history, HasSubstr(text));
  }
}

TEST_F(PacketCallbacksTest, WhatCrossesIsCountedByItsKindWhileTheControllerIsUp) {
  BtActivitiesLogger& activity = BtActivitiesLogger::Get();
  activity.StartLogging();
  activity.OnBluetoothEnabled();
  activity.OnBluetoothEnabled();
  EventCallback(Bytes{0x0E, 4, 1, 3, 12, 0});
  for (int i = 0; i < 2; ++i) AclCallback(Acl(1, 0));
  ScoCallback(Bytes{1, 0, 0});
  activity.UpdateBthalWakelockStat("then", 5000, 3);
  activity.UpdateBthalWakelockStat("now", 4000, 2);
  activity.UpdateControllerActivity({.tx_ms = 9, .rx_ms = 9, .idle_ms = 9, .energy_used = 9});
  activity.UpdateControllerActivity({.tx_ms = 1, .rx_ms = 2, .idle_ms = 3, .energy_used = 4});
  const std::string counted = R"(Commands to the controller: 0 packets, 0 bytes
Events from the controller: 1 packets, 6 bytes
ACL data to the controller: 0 packets, 0 bytes
ACL data from the controller: 2 packets, 10 bytes
Long awake periods of the link: 2, 9000 ms together, the longest 5000 ms; the last from now: 4000 ms, 2 wake-ups
Controller's own account, the latest of 2: sending 1 ms, receiving 2 ms, idle 3 ms, energy 4
)";
  EXPECT_EQ(activity.Report(), "Bluetooth is on, enabled 2 times, packets are counted\n" + counted);
  activity.StopLogging();
  activity.OnBluetoothDisabled();
  AclCallback(Acl(1, 0));
  EXPECT_EQ(activity.Report(), "Bluetooth is off, enabled 2 times, packets are not counted\n" + counted);
}

// Whether a thread is inside a call to the client is known to itself alone, and only as long as it is.
TEST_F(PacketCallbacksTest, ACallFromInsideACallbackIsKnown) {
  bool inside = false;
  client_->OnEvent([&](const Bytes&) { inside = IsCallingClient(); });
  EventCallback(Bytes{0x0E, 4, 1, 3, 12, 0});
  EXPECT_TRUE(inside);
  EXPECT_FALSE(IsCallingClient());
}

// The late notice of a death must not part its successor from the service.
TEST_F(PacketCallbacksTest, OnlyTheClientItselfIsDisconnected) {
  const auto other = ndk::SharedRefBase::make<RecordingCallbacks>();
  EXPECT_FALSE(DisconnectClient(other));
  EXPECT_EQ(ConnectedClient(), client_);
  EXPECT_TRUE(DisconnectClient(client_));
  EXPECT_EQ(ConnectedClient(), nullptr);
  EXPECT_EQ(log_.Count("HasClientConnectWith: has_client: 0"), 1U);
}

}  // namespace
}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
