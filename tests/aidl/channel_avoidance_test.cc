#include "aidl/bt_channel_avoidance.h"

#include "aidl/bluetooth_ccc.h"
#include "aidl/bluetooth_ewp.h"
#include "aidl/bluetooth_hci/controller_activity_watcher.h"
#include "aidl/bluetooth_hci_inject.h"
#include "aidl/bluetooth_sar.h"
#include "bluetooth_Activity.h"
#include "support/test.h"
#include "support/uart_transport.h"

namespace vendor::tovani::bluetooth_ext {
namespace {

using namespace ::bthal::test;

using ::android::hardware::bluetooth::BtActivitiesLogger;
using ::android::hardware::bluetooth::activitywatcher::ControllerActivityWatcher;
using bt_channel_avoidance::aidl::implementation::BTChannelAvoidance;

constexpr uint16_t kOpcode = 0x0C3F;
constexpr std::array<uint8_t, 10> kMap = {'A', 'B', 'C', 0, 5, 6, 7, 8, 9, 0x7F};

Bytes MapCommand(const std::array<uint8_t, 10>& map) { return Command(kOpcode, {map.begin(), map.end()}); }

class ExtensionTest : public TransportTest {
 protected:
  std::shared_ptr<BTChannelAvoidance> avoidance_ = ndk::SharedRefBase::make<BTChannelAvoidance>();
};

TEST_F(ExtensionTest, TwoMapsGoOutAndExactlyTheirAnswersAreClaimed) {
  avoidance_->OnBluetoothEnabled(transport_.flow());
  EXPECT_TRUE(avoidance_->setBluetoothChannelStatus(kMap).isOk());
  EXPECT_TRUE(avoidance_->setBluetoothChannelStatus({}).isOk());
  EXPECT_EQ(controller_.NextCommand(), MapCommand(kMap));
  controller_.Complete(kOpcode, 0x12);
  EXPECT_EQ(controller_.NextCommand(), MapCommand({}));
  controller_.Complete(kOpcode, 0);
  controller_.Complete(kOpcode, 1);  // to a command of the stack
  EXPECT_TRUE(EventsReach(1));
  EXPECT_THAT(transport_.Events(), ElementsAre(Bytes{0x0E, 4, 1, 0x3F, 0x0C, 1}));
  EXPECT_EQ(log_.Count("setBluetoothChannelStatus: Channel Map <"), 2u);
  EXPECT_TRUE(log_.Has("OnEventReceive: (2) Recv Failure VSE <[6]{14, 4, 1, 63, 12, 18}>"));
  EXPECT_TRUE(log_.Has("OnEventReceive: (1) Recv Success VSE <[6]{14, 4, 1, 63, 12, 0}>"));
}

// What was owed when Bluetooth went off, or has been refused, is not taken from the stack's own answers later.
TEST_F(ExtensionTest, ALateAnswerAndARefusalCostTheStackNoneOfItsOwn) {
  avoidance_->OnBluetoothEnabled(transport_.flow());
  EXPECT_TRUE(avoidance_->setBluetoothChannelStatus(kMap).isOk());
  EXPECT_EQ(controller_.NextCommand(), MapCommand(kMap));
  avoidance_->OnBluetoothDisabled();
  controller_.Complete(kOpcode, 0);
  EXPECT_TRUE(EventsReach(1));
  avoidance_->OnBluetoothEnabled(transport_.flow());
  controller_.Complete(kOpcode, 0x21);  // to the stack's command, and so is the next
  EXPECT_TRUE(EventsReach(2));

  EXPECT_TRUE(avoidance_->setBluetoothChannelStatus(kMap).isOk());
  EXPECT_EQ(controller_.NextCommand(), MapCommand(kMap));
  controller_.CommandStatus(kOpcode, 0x01);
  controller_.CommandStatus(kOpcode, 0x02);
  controller_.Complete(kOpcode, 0x22);
  ASSERT_TRUE(EventsReach(4));
  EXPECT_EQ(transport_.Events()[2], (Bytes{0x0F, 4, 0x02, 1, 0x3F, 0x0C}));
  EXPECT_EQ(transport_.Events()[3], (Bytes{0x0E, 4, 1, 0x3F, 0x0C, 0x22}));

  // A channel that has gone without a word leaves nothing owed on the next one.
  EXPECT_TRUE(avoidance_->setBluetoothChannelStatus(kMap).isOk());
  avoidance_->OnBluetoothEnabled(transport_.flow());
  controller_.Complete(kOpcode, 0x23);
  EXPECT_TRUE(EventsReach(5));
}

TEST_F(ExtensionTest, RefusesMapsWhileBluetoothIsOffOrTheTransportGone) {
  EXPECT_EQ(avoidance_->setBluetoothChannelStatus(kMap).getServiceSpecificError(), -22);
  avoidance_->OnBluetoothEnabled(transport_.flow());
  avoidance_->OnBluetoothDisabled();
  EXPECT_EQ(avoidance_->setBluetoothChannelStatus(kMap).getServiceSpecificError(), -22);
  avoidance_->OnBluetoothEnabled(nullptr);
  EXPECT_EQ(avoidance_->setBluetoothChannelStatus(kMap).getServiceSpecificError(), -22);
  controller_.Complete(kOpcode, 0);
  EXPECT_TRUE(EventsReach(1)) << "still watching";
  avoidance_->OnBluetoothEnabled(transport_.flow());
  transport_.Close();
  EXPECT_EQ(avoidance_->setBluetoothChannelStatus(kMap).getServiceSpecificError(), -22);
}

// The map is shown as text up to its first zero byte, and never beyond its end.
TEST_F(ExtensionTest, TheMapIsLoggedAsText) {
  avoidance_->setBluetoothChannelStatus(kMap);
  avoidance_->setBluetoothChannelStatus({});
  avoidance_->setBluetoothChannelStatus({'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'});
  EXPECT_TRUE(log_.Has("setBluetoothChannelStatus: Unable to set channel map <ABC>"));
  EXPECT_TRUE(log_.Has("setBluetoothChannelStatus: Unable to set channel map <>"));
  EXPECT_TRUE(log_.Has("setBluetoothChannelStatus: Unable to set channel map <0123456789>"));
}

TEST_F(ExtensionTest, TheOthersRefuseTheirOperationsOnAndOff) {
  const auto sar = ndk::SharedRefBase::make<sar::aidl::implementation::BluetoothSar>();
  const auto ccc = ndk::SharedRefBase::make<ccc::aidl::implementation::BluetoothCcc>();
  const auto inject = ndk::SharedRefBase::make<hci_inject::aidl::implementation::BluetoothHciInject>();
  const auto refused = [&] {
    std::vector<binder_exception_t> codes;
    codes.push_back(sar->setBluetoothTxPowerCap(10).getExceptionCode());
    codes.push_back(ccc->registerForLmpEvents({}, {1}).getExceptionCode());
    codes.push_back(ccc->unregisterLmpEvents({}).getExceptionCode());
    const auto injected = inject->sendHciCommand({3, 12, 0});
    EXPECT_STREQ(injected.getMessage(), "HCI command injection is not offered");
    codes.push_back(injected.getExceptionCode());
    return codes == std::vector<binder_exception_t>(4, EX_UNSUPPORTED_OPERATION);
  };
  EXPECT_TRUE(refused());
  EXPECT_TRUE(log_.Has("setBluetoothTxPowerCap: refused: Transmit-power caps are not offered"));
  EXPECT_TRUE(log_.Has("registerForLmpEvents: refused: LMP event registration is not offered"));
  sar->OnBluetoothEnabled(transport_.flow());
  ccc->OnBluetoothEnabled(transport_.flow());
  inject->OnBluetoothEnabled(transport_.flow());
  EXPECT_TRUE(refused());
  controller_.Complete(kOpcode, 0);  // what comes next is not held up by anything that was sent
  EXPECT_TRUE(EventsReach(1));
  EXPECT_TRUE(controller_.NextCommand(std::chrono::milliseconds(0)).empty());
}

// Get Controller Activity Energy Info is the stack's: read along while started, and delivered all the same.
TEST_F(ExtensionTest, ControllerActivityIsReadAlong) {
  const auto watcher = ndk::SharedRefBase::make<ControllerActivityWatcher>();
  transport_.flow()->RegisterEventWatcher(watcher.get());
  const auto answer = [&](uint8_t status, uint8_t tx_ms) {
    const size_t before = transport_.Events().size();
    controller_.Complete(0xFD59, status, {tx_ms, 1, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0});
    ASSERT_TRUE(EventsReach(before + 1));
  };
  answer(0, 1);
  EXPECT_THAT(BtActivitiesLogger::Get().Report(), HasSubstr("was not asked"));
  EXPECT_TRUE(watcher->startWatcher());
  EXPECT_FALSE(watcher->startWatcher());
  answer(1, 1);
  EXPECT_THAT(BtActivitiesLogger::Get().Report(), HasSubstr("was not asked"));
  answer(0, 7);
  EXPECT_THAT(BtActivitiesLogger::Get().Report(), HasSubstr("sending 263 ms, receiving 2 ms, idle 3 ms, energy 4"));
  EXPECT_TRUE(watcher->stopWatcher());
  EXPECT_FALSE(watcher->stopWatcher());
  transport_.flow()->UnregisterEventWatcher(watcher.get());
}

}  // namespace
}  // namespace vendor::tovani::bluetooth_ext
