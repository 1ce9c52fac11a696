#include "hci_flow_control/hci_flow_control.h"

#include "hci_flow_control/hci_channel.h"
#include "hci_flow_control/vendor_command.h"
#include "os/kill_self.h"
#include "shim/shim.h"
#include "support/btsnoop_file.h"
#include "support/pty.h"
#include "support/test.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::hci {
namespace {

using namespace ::bthal::test;

const Bytes kReset = {0x03, 0x0C, 0x00};
const Bytes kReadVersion = {0x01, 0x10, 0x00};
const Bytes kReadAddress = {0x09, 0x10, 0x00};
const Bytes kResetComplete = {0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00};
const Bytes kReadVersionComplete = {0x0E, 0x04, 0x01, 0x01, 0x10, 0x00};
const Bytes kCreditsOnly = {0x0E, 0x03, 0x01, 0x00, 0x00};  // Command Complete that answers no command

Bytes H4(uint8_t type, const Bytes& packet) { return Joined({{type}, packet}); }

// Registered as long as it lives.
class Watcher : public HciEventWatcher {
 public:
  Watcher(std::shared_ptr<HciFlowControl> flow, std::string name, uint8_t code, uint16_t opcode, bool claims)
      : HciEventWatcher(std::move(name), code, opcode), claims_(claims), flow_(std::move(flow)) {
    flow_->RegisterEventWatcher(this);
  }
  ~Watcher() override { flow_->UnregisterEventWatcher(this); }

  bool OnEventReceive(const HciPacket& event) override {
    seen.push_back(event);
    if (seen.size() == 1) first_seen.set_value();
    return claims_;
  }
  void OnHalt() override { ++halts; }

  std::vector<Bytes> seen;
  std::promise<void> first_seen;
  int halts = 0;

 private:
  const bool claims_;
  const std::shared_ptr<HciFlowControl> flow_;
};

// The real transport: shim, H4 and receive thread over a pseudo-terminal, with the test as controller.
class HciFlowControlTest : public LoggedTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(symlink(uart_.host_path().c_str(), root_.Below("/dev/ttySAC16").c_str()), 0);
    Open();
  }
  void TearDown() override {
    flow_.reset();
    channel::Deinitialize();
  }

  void Open() {
    const auto other = [this](const HciPacket& packet) { Note(others_, packet); };
    const auto event = [this](const HciPacket& packet) {
      Note(events_, packet);
      if (on_event_) on_event_(packet);
    };
    HciFlowControl* const flow = channel::InitializeHciHandle({event, other, other, other, nullptr});
    ASSERT_NE(flow, nullptr);
    flow_ = flow->shared_from_this();
    log_.Clear();
  }

  static void Note(std::vector<Bytes>& list, const HciPacket& packet) {
    const std::lock_guard lock(mutex_);
    list.push_back(packet);
  }

  size_t Send(const Bytes& command) { return flow_->Send(0x01, command.data(), command.size()); }

  // Delivers an event as the receive thread does, and returns after all that it sets off.
  void Receive(const Bytes& event) {
    flow_->OnHciEventReady(HciPacket(event), {.event_cb = [this](const HciPacket& packet) { Note(events_, packet); }});
  }

  std::vector<Bytes> Events() {
    const std::lock_guard lock(mutex_);
    return events_;
  }

  // What the host has put on the wire. Nothing but `expected` may have come.
  void ExpectOnWire(std::vector<Bytes> expected) {
    // A packet past the queue tells that all before it has arrived.
    const Bytes mark = {0x99, 0x00, 0x00};
    flow_->SendNoAck(0x03, mark.data(), mark.size());
    expected.push_back(H4(0x03, mark));
    Bytes all;
    for (const Bytes& packet : expected) all.insert(all.end(), packet.begin(), packet.end());
    EXPECT_EQ(uart_.Read(all.size()), all);
  }

  static inline std::mutex mutex_;
  Pty uart_;
  std::vector<Bytes> events_;
  std::vector<Bytes> others_;
  HciPacketCallback on_event_;
  std::shared_ptr<HciFlowControl> flow_;
};

TEST_F(HciFlowControlTest, OneCommandIsOutstandingAtATime) {
  EXPECT_EQ(Send(kReset), 4u) << "what the transport wrote, with the type";
  EXPECT_EQ(Send(kReadVersion), 3u) << "queued";
  EXPECT_EQ(Send(kReadAddress), 3u);
  EXPECT_TRUE(log_.Has("Send: HCI CMD Frame <[3]{9, 16, 0}> enqueued"));
  ExpectOnWire({H4(1, kReset)});
  Receive(kResetComplete);
  ExpectOnWire({H4(1, kReadVersion)});
  Receive(kReadVersionComplete);
  ExpectOnWire({H4(1, kReadAddress)});
  EXPECT_TRUE(log_.Has("HciEventPostProcess: HCI CMD Frame <[3]{3, 12, 0}> finished"));
  EXPECT_TRUE(log_.Has("HciEventPostProcess: HCI CMD Frame <[3]{1, 16, 0}> dequeued"));
  EXPECT_TRUE(log_.Has("HciEventPostProcess: HCI Event 0xe Opcode 0xc03 credits 1 <[6]{14, 4, 1, 3, 12, 0}>"));
}

TEST_F(HciFlowControlTest, WithoutCreditsTheNextCommandWaitsForAnyThatGrantsThem) {
  Send(kReset);
  Send(kReadVersion);
  Receive({0x0F, 0x04, 0x12, 0x00, 0x03, 0x0C});  // Command Status, no credits
  ExpectOnWire({H4(1, kReset)});
  Receive({0xFF, 0x02, 0x01, 0x01});  // grants nothing
  Receive({0x0E, 0x03, 0x00, 0x00, 0x00});
  ExpectOnWire({});
  Receive(kCreditsOnly);
  ExpectOnWire({H4(1, kReadVersion)});
  Receive({0x19, 0x03, 0x01, 0x10, 0x00});  // Loopback Command: an answer and a credit
  Send(kReadAddress);
  ExpectOnWire({H4(1, kReadAddress)});
}

// A controller that has fallen silent costs no more memory than its share, and none of what had been taken.
TEST_F(HciFlowControlTest, TheQueueIsBoundedAndSaysSo) {
  Send(kReset);
  for (size_t i = 1; i < HciFlowControl::kMaxQueuedCommands; ++i) ASSERT_EQ(Send(kReadVersion), 3u) << i;
  const uint64_t refused = HciFlowControl::RefusedSends();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Send(kReadAddress), 0u);
  EXPECT_EQ(HciFlowControl::RefusedSends(), refused + 100);
  EXPECT_TRUE(log_.HasThrottled("Send: 8192 commands wait for the controller, one more is refused"));
  Receive(kResetComplete);
  EXPECT_EQ(Send(kReadAddress), 3u);
  ExpectOnWire({H4(1, kReset), H4(1, kReadVersion)});
}

// A sender is stuck in its write, with the lock held that orders it among the others.
TEST_F(HciFlowControlTest, AnEventOfNobodysWaitsForNoWrite) {
  constexpr size_t kSent = 64;
  const Bytes packet(4096, 0x55);
  std::atomic<size_t> sent = 0;
  std::thread sender([&] {
    for (; sent < kSent; ++sent) flow_->SendNoAck(0x02, packet.data(), packet.size());
  });
  size_t before = 0;
  EXPECT_TRUE(WaitFor([&] { return std::exchange(before, sent) == sent && sent != 0; }));
  EXPECT_LT(sent, kSent);
  auto received = std::async(std::launch::async, [&] {
    Receive({0x3E, 0x02, 0x02, 0x00});
    Receive({0x13, 0x05, 0x01, 0x40, 0x00, 0x01, 0x00});
  });
  EXPECT_EQ(received.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(Events().size(), 2u);
  EXPECT_EQ(uart_.Read(kSent * (packet.size() + 1)).size(), kSent * (packet.size() + 1));
  sender.join();
}

TEST_F(HciFlowControlTest, AnswersToOtherCommandsReleaseNothing) {
  Send(kReset);
  Send(kReadAddress);
  ExpectOnWire({H4(1, kReset)});
  Receive(kReadVersionComplete);
  EXPECT_TRUE(
      log_.Has("HciEventPostProcess: HCI CMD Frame and Event not matched <[3]{3, 12, 0}> "
               "<[6]{14, 4, 1, 1, 16, 0}>"));
  log_.Clear();
  Receive(kCreditsOnly);
  Receive({0x10, 0x01, 0x42});
  EXPECT_FALSE(log_.Has("not matched")) << "an event that answers no command is no mismatch";
  ExpectOnWire({});
  flow_->DropPendingCommands();
  EXPECT_EQ(Send(kReadVersion), 4u) << "nothing is outstanding any more";
  ExpectOnWire({H4(1, kReadVersion)});
}

TEST_F(HciFlowControlTest, DataAndUnacknowledgedCommandsPassTheQueue) {
  Send(kReset);
  EXPECT_TRUE(log_.Has("Send: HCI Command <[3]{3, 12, 0}> sending..."));
  Send(kReadVersion);
  const Bytes acl = {0x40, 0x20, 0x01, 0x00, 0x77};
  EXPECT_EQ(flow_->Send(0x02, acl.data(), acl.size()), 6u);
  EXPECT_EQ(flow_->SendNoAck(0x01, kReadAddress.data(), kReadAddress.size()), 4u);
  ExpectOnWire({H4(1, kReset), H4(2, acl), H4(1, kReadAddress)});
}

TEST_F(HciFlowControlTest, WatchersSeeWhatTheyAskedForAndClaimed) {
  Watcher reset(flow_, "reset", 0x0E, 0x0C03, true);
  Watcher any(flow_, "any", 0x0E, 0, false);
  Watcher vendor(flow_, "vendor", 0xFF, 0x0C03, false);  // an opcode says nothing here
  Watcher status(flow_, "status", 0x0F, 0x0C03, true);
  flow_->RegisterEventWatcher(&any);  // a second time
  const Bytes vendor_event = {0xFF, 0x01, 0x58};
  const Bytes other_status = {0x0F, 0x04, 0x00, 0x01, 0x01, 0x10};
  for (const Bytes& event : {kResetComplete, kReadVersionComplete, vendor_event, other_status}) Receive(event);
  EXPECT_THAT(any.seen, ElementsAre(kResetComplete, kReadVersionComplete)) << "once each, also when claimed";
  EXPECT_THAT(reset.seen, ElementsAre(kResetComplete));
  EXPECT_THAT(vendor.seen, ElementsAre(vendor_event));
  EXPECT_THAT(status.seen, IsEmpty());
  EXPECT_THAT(Events(), ElementsAre(kReadVersionComplete, vendor_event, other_status));
  EXPECT_TRUE(log_.Has("HciEventPreProcess: HCI Event 0xe Opcode 0xc03 Length 6 handled by reset"));
  EXPECT_TRUE(log_.Has("HciEventPreProcess: HCI Event 0xe Opcode 0xc03 Length 6 unhandled by any"));
  EXPECT_TRUE(log_.Has("HciEventPreProcess: HCI Event 0xe Opcode 0xc03 handled <[6]{14, 4, 1, 3, 12, 0}>"));
  EXPECT_TRUE(log_.Has("OnHciEventReady: HCI Event <[6]{14, 4, 1, 3, 12, 0}> handled"));

  flow_->UnregisterEventWatcher(&reset);
  Receive(kResetComplete);
  EXPECT_EQ(Events().back(), kResetComplete);
}

// An event of nobody's may be kept, and be handed on with others. Before anybody acts on one, what was kept goes.
TEST_F(HciFlowControlTest, WhatIsActedOnIsNotKept) {
  os::SetKillSelfForTest([] {});
  const Watcher vendor(flow_, "vendor", 0xFF, 0, false);
  std::string calls;
  const Consumers consumers{.event_cb = [&](const HciPacket&) { calls += "event"; },
                            .more_to_come_cb = [&](bool more) { calls += more ? "more " : "go "; }};
  const struct {
    Bytes event;
    const char* calls;
  } kCases[] = {{{0x3E, 1, 2}, "event"},       {{0x13, 5, 1, 0x40, 0, 1, 0}, "event"},
                {{0xFF, 1, 0x58}, "go event"}, {kResetComplete, "go event"},
                {{0x3E, 2, 2}, "go "},         {{0x0F, 4, 0, 1, 3, 12}, "go event"},
                {{0x19, 2, 3, 12}, "go event"}};
  for (const auto& one : kCases) {
    calls.clear();
    flow_->OnHciEventReady(HciPacket(one.event), consumers);
    EXPECT_EQ(calls, one.calls) << ::testing::PrintToString(one.event);
  }
}

TEST_F(HciFlowControlTest, MalformedEventsAreReported) {
  os::SetKillSelfForTest([] {});
  Watcher any(flow_, "any", 0x0E, 0, false);
  Send(kReset);
  for (const Bytes& event :
       {Bytes{}, Bytes{0x0E}, Bytes{0x0E, 0x05, 0x01, 0x03, 0x0C, 0x00}, Bytes{0x0E, 0x03, 1, 3, 12, 0}}) {
    Receive(event);
  }
  EXPECT_THAT(any.seen, IsEmpty());
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_TRUE(log_.Has("error_code: (130), error_info: Invalid / un-reassembled HCI event: [6]{14, 5, 1, 3, 12, 0}"));
}

TEST_F(HciFlowControlTest, AnEventTooShortForItsOpcodeAnswersNoCommand) {
  os::SetKillSelfForTest([] {});
  Watcher any(flow_, "any", 0x0E, 0, false);
  Watcher reset(flow_, "reset", 0x0E, 0x0C03, false);
  Send(kReset);
  Send(kReadVersion);
  const Bytes cut = {0x0E, 0x02, 0x01, 0x03};
  Receive(cut);
  EXPECT_TRUE(log_.Has("error_code: (130), error_info: Invalid HCI event: [4]{14, 2, 1, 3}"));
  EXPECT_THAT(any.seen, ElementsAre(cut));
  EXPECT_THAT(reset.seen, IsEmpty());
  EXPECT_THAT(Events(), ElementsAre(cut));
  ExpectOnWire({H4(1, kReset)});
}

TEST_F(HciFlowControlTest, HaltRefusesAllButTheStacksEvents) {
  Watcher watcher(flow_, "watcher", 0x0E, 0, true);
  HciFlowControl::Halt();
  HciFlowControl::Halt();
  EXPECT_EQ(watcher.halts, 1);
  EXPECT_EQ(Send(kReset), 0u);
  EXPECT_EQ(flow_->SendNoAck(0x01, kReset.data(), kReset.size()), 0u);
  EXPECT_EQ(flow_->SendBatch(kReset.data(), kReset.size()), 0u);
  EXPECT_EQ(HciFlowControl::RefusedSends(), 3u);
  flow_->RegisterEventWatcher(&watcher);
  flow_->UnregisterEventWatcher(&watcher);
  Receive(kResetComplete);
  EXPECT_THAT(watcher.seen, IsEmpty());
  EXPECT_THAT(Events(), ElementsAre(kResetComplete));
  for (const char* operation : {"Send", "SendNoAck", "SendBatch", "Halt", "RegisterEventWatcher",
                                "UnregisterEventWatcher", "HciEventPreProcess", "HciEventPostProcess"}) {
    const auto lines = log_.Lines();
    const std::string text = std::string(operation) + ": called after being halted!";
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [&](const auto& line) { return line.text == text && line.severity == 'W'; }),
              1)
        << operation;
  }

  // The next transport works; whoever still holds the old one finds it halted.
  const std::shared_ptr<HciFlowControl> old = flow_;
  channel::Deinitialize();
  Open();
  EXPECT_EQ(Send(kReset), 4u);
  EXPECT_EQ(old->Send(0x01, kReadVersion.data(), kReadVersion.size()), 0u);
  ExpectOnWire({H4(1, kReset)});
}

TEST_F(HciFlowControlTest, TheLastUserOfAnOldTransportLeavesTheNewOneAlone) {
  std::shared_ptr<HciFlowControl> old = std::move(flow_);
  channel::Deinitialize();
  Open();
  old.reset();
  uart_.Write(H4(0x04, kResetComplete));
  EXPECT_TRUE(WaitFor([&] { return Events().size() == 1; }));
  Send(kReset);
  ExpectOnWire({H4(1, kReset)});
}

TEST_F(HciFlowControlTest, BatchesGoPacketByPacketWhereTheTransportTakesNone) {
  const Bytes batch = Joined({H4(1, {0x18, 0xFC, 0x02, 0xAA, 0xBB}), H4(1, kReset)});
  EXPECT_EQ(flow_->SendBatch(batch.data(), batch.size()), batch.size());
  ExpectOnWire({batch});
  EXPECT_EQ(flow_->SendBatch(batch.data(), batch.size()), batch.size());
  ExpectOnWire({batch});
  EXPECT_EQ(log_.Count("SendBatch unsupported without AOC passthrough"), 1u) << "asked once";
  EXPECT_EQ(flow_->SendBatch(batch.data(), 0), 0u);
  // Cut anywhere, only the packets that are whole go out.
  for (size_t cut = 1; cut < batch.size(); ++cut) {
    const Bytes head(batch.begin(), batch.begin() + cut);
    const size_t whole = cut < 6 ? 0 : 6;
    EXPECT_EQ(flow_->SendBatch(head.data(), head.size()), whole);
    ExpectOnWire({Bytes(batch.begin(), batch.begin() + whole)});
  }
  EXPECT_TRUE(log_.Has("SendBatch: packet of 6 bytes at offset 0 does not fit into the batch of 5 bytes"));
}

TEST_F(HciFlowControlTest, TheStackMaySendFromInsideItsEvent) {
  channel::Deinitialize();
  on_event_ = [this](const HciPacket&) { Send(kReset); };
  Open();
  uart_.Write(H4(0x04, kCreditsOnly));
  EXPECT_EQ(uart_.Read(4), H4(1, kReset));
  uart_.Write(H4(0x02, {0x40, 0x20, 0x01, 0x00, 0x77}));
  EXPECT_TRUE(WaitFor([&] { return (std::lock_guard(mutex_), others_.size() == 1); }));
}

// Seldom seen with a receive thread of real-time priority, and with every bring-up without.
TEST_F(HciFlowControlTest, WhatAClaimedAnswerSetsOffStandsBehindItInThePacketLog) {
  constexpr int kCommands = 300;
  SetProperty("persist.bluetooth.vendor.btsnoop", "true");
  SetProperty("persist.bluetooth.btsnooplogmode", "full");
  const std::string path = "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
  root_.Write(path, "");
  VndSnoopLogger::Get().Start();
  std::atomic<int> sent{0};
  std::thread sender([&] {
    for (int i = 0; i < kCommands; ++i) {
      Watcher watcher(flow_, "sender", kCommandCompleteEvent, 0x0C03, true);
      SendVendorCommand(*flow_, HciPacket(kReset));
      ++sent;
      sent.notify_one();
      watcher.first_seen.get_future().wait();
    }
  });
  for (int i = 0; i < kCommands; ++i) {
    sent.wait(i);
    Receive(kResetComplete);
  }
  sender.join();
  VndSnoopLogger::Get().Stop();
  std::string kinds;
  const auto file = ParseSnoopFile(root_.Read(path));
  ASSERT_TRUE(file.has_value());
  for (const SnoopRecord& record : file->records) kinds += record.type == 0x01 ? 'c' : 'e';
  std::string expected;
  for (int i = 0; i < kCommands; ++i) expected += "ce";
  EXPECT_EQ(kinds, expected);
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci
