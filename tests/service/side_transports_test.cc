// Coexistence messages, Thread frames and channel avoidance of the real service, across the ways in which a session
// ends.
#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>

#include "support/board_session.h"
#include "support/test.h"
#include "support/thread_client.h"

namespace bthal::test {
namespace {

using ::aidl::vendor::tovani::bluetooth_ext::IBTChannelAvoidance;

const Bytes kReadAddress = {0x09, 0x10, 0};

// With accelerated Bluetooth-on the controller stays up between sessions; without, it comes up for each. Both over the
// UART and by a sensor hub.
class SideTransportsTest : public BoardSessionTest, public ::testing::WithParamInterface<std::tuple<bool, bool>> {
 protected:
  static bool accelerated() { return std::get<0>(GetParam()); }
  static bool hub() { return std::get<1>(GetParam()); }

  void SetUp() override {
    sim::BoardOptions options = SmallBoard();
    options.hub = hub();
    ASSERT_NO_FATAL_FAILURE(StartBoard(options));
    root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf", "ThreadDispatcherEnabled = true\n");
    SetProperty("persist.bluetooth.thread_dispatcher.enabled", "true");
    Accelerate(accelerated());
    StartService();
    ASSERT_NO_FATAL_FAILURE(FindHal());
  }

  // Whether both side services reach the controller. They are started behind the client's back, so they may take a
  // moment.
  bool SidesWork() {
    const auto avoidance = FindService<IBTChannelAvoidance>();
    const auto set = [&] { return avoidance->setBluetoothChannelStatus({0xFF, 0xFF, 0xFF, 0xFF, 0xFF}).isOk(); };
    if (!WaitFor(set)) return false;
    const ThreadClient thread_client(root_.path());
    return thread_client.connected() && thread_client.Send({1, 2, 3}) && thread_client.Receive() == Bytes({1, 2, 3});
  }

  bool SidesAreOff() const {
    return FindService<IBTChannelAvoidance>()->setBluetoothChannelStatus({}).getServiceSpecificError() == -22;
  }

  // The last byte of every message that the coexistence driver got.
  std::vector<int> CoexMessages() const {
    std::vector<int> messages;
    for (const JournalEntry& entry : board_->Journal()) {
      if (entry.event == WireEvent::kCoexMessage) messages.push_back(entry.bytes.back());
    }
    return messages;
  }
};

TEST_P(SideTransportsTest, WorkInEverySessionAndInNoneBetween) {
  if (!accelerated()) {
    EXPECT_THAT(board_->Commands(), IsEmpty());
  }
  for (size_t session = 1; session <= 3; ++session) {
    client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
    ASSERT_NO_FATAL_FAILURE(Initialize());
    EXPECT_TRUE(SidesWork());
    EXPECT_EQ(Count(*board_, WireEvent::kPatchLaunched), accelerated() ? 1U : session);
    const size_t offs = Count(*board_, WireEvent::kPowerOff);
    ASSERT_TRUE(hal_->close().isOk());
    EXPECT_TRUE(SidesAreOff());
    EXPECT_EQ(service_->CountInLog("BluetoothHci::close() Done"), session);
    EXPECT_EQ(service_->CountInLog(": [bthal.thread_dispatcher] Enabling Thread Dispatcher."), session);
    EXPECT_EQ(service_->CountInLog(": [bthal.thread_dispatcher] Disabling Thread Dispatcher."), session);
    if (accelerated()) {
      EXPECT_EQ(board_->Commands().back(), (Bytes{0x79, 0xFC, 0})) << "the reset of the close";
    } else {
      EXPECT_TRUE(Await(*board_, WireEvent::kPowerOff, offs + 1));
    }
  }
}

TEST_P(SideTransportsTest, EveryPowerChangeIsToldToTheDriverInOrder) {
  ASSERT_NO_FATAL_FAILURE(Initialize());
  // Off, going and gone; then on, coming and there. What the hub's own pin does is the hub's to tell.
  const std::vector<int> changes = hub() ? std::vector<int>() : std::vector{0x45, 0x46, 0x47, 0x48};
  EXPECT_THAT(CoexMessages(), ElementsAreArray(changes));
  ASSERT_TRUE(hal_->close().isOk());
  service_->Signal(SIGTERM);
  ASSERT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("W bthal.aidl.qnlbtlinux: signal_handler: Caught Signal! signum: 15"), 1U);
  EXPECT_TRUE(Await(*board_, WireEvent::kPowerOff, Count(*board_, WireEvent::kPowerOn)));
  if (hub()) {
    EXPECT_THAT(CoexMessages(), IsEmpty());
    return;
  }
  EXPECT_TRUE(WaitFor([&] { return CoexMessages().size() >= 6; }));
  EXPECT_EQ(CoexMessages()[4], 0x45);
  EXPECT_EQ(CoexMessages()[5], 0x46);
}

TEST_P(SideTransportsTest, SigtermEndsTheServiceWhileACommandIsNeverAnswered) {
  ASSERT_NO_FATAL_FAILURE(Initialize());
  ASSERT_NO_FATAL_FAILURE(AddFault("no-answer,count=always"));
  ASSERT_TRUE(hal_->sendHciCommand(kReadAddress).isOk());
  ASSERT_TRUE(hal_->sendHciCommand(kReadAddress).isOk());
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
}

INSTANTIATE_TEST_SUITE_P(AccelerationAndHub, SideTransportsTest,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool()));

}  // namespace
}  // namespace bthal::test
