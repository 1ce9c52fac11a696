#include "btqnl_protocol/bluetooth_address.h"

#include "conf/provisioned_address.h"
#include "support/test.h"
#include "support/uart_transport.h"

namespace android::hardware::bluetooth::hci {
namespace {

using namespace ::bthal::test;
using conf::AddressBytes;
using conf::ParseBluetoothAddress;

constexpr uint16_t kWriteBdAddr = 0xFC01;
constexpr char kDeviceTree[] = "/proc/device-tree/chosen/config/bt_addr";
constexpr char kProperty[] = "ro.vendor.bluetooth.evb_bdaddr";

class BluetoothAddressTest : public TransportTest {
 protected:
  std::future<bool> Apply() {
    return std::async(std::launch::async, [this] { return ApplyProvisionBDAddress(transport_.flow()); });
  }

  // Provisions with a controller that accepts, and returns the command it got.
  Bytes ApplyAccepted() {
    auto accepted = Apply();
    const Bytes command = controller_.NextCommand();
    controller_.Complete(kWriteBdAddr, 0);
    EXPECT_TRUE(accepted.get());
    return command;
  }
};

TEST_F(BluetoothAddressTest, WritesTheDeviceTreesAddressLeastSignificantByteFirst) {
  root_.Write(kDeviceTree, "AA:BB:CC:DD:EE:FF\nsecond line");
  SetProperty(kProperty, "11:22:33:44:55:66");  // not asked while there is a device tree
  EXPECT_THAT(ApplyAccepted(), ElementsAre(0x01, 0xFC, 6, 0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA));
  EXPECT_TRUE(log_.Has("Provision: BDADDR <ff:ee:dd:cc:bb:aa>"));
  EXPECT_TRUE(log_.Has("Apply: Send VSC <[9]{1, 252, 6, 255, 238, 221, 204, 187, 170}>"));
  EXPECT_TRUE(log_.Has("OnEventReceive: Recv Success VSE <[6]{14, 4, 1, 1, 252, 0}>"));
  EXPECT_EQ(UartTransport::Deaths(), 0);
  EXPECT_THAT(transport_.Events(), IsEmpty());
}

// Without a device tree, and with a FIFO in the entry's place, with nobody at its other end, which is no entry either.
TEST_F(BluetoothAddressTest, TakesThePropertyWithoutAnEntryThatIsAFile) {
  SetProperty(kProperty, "aabbccddeeff");
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(ApplyAccepted(), ElementsAre(0x01, 0xFC, 6, 0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA));
    mkfifo(root_.Below(kDeviceTree).c_str(), 0600);
  }
}

TEST_F(BluetoothAddressTest, WritesTheZeroAddressAndReportsItWithoutAUsableSource) {
  root_.Write(kDeviceTree, "AA:BB:CC\n");
  SetProperty(kProperty, "aabbccddeeff");  // an entry that says nothing is not made up for
  EXPECT_THAT(ApplyAccepted(), ElementsAre(0x01, 0xFC, 6, 0, 0, 0, 0, 0, 0));
  EXPECT_TRUE(log_.Has("error_code: (150), error_info: Can't fetch the provisioning BDA"));
  EXPECT_EQ(UartTransport::Deaths(), 1);
}

TEST_F(BluetoothAddressTest, ARefusalIsTheAnswerAndTheStackHearsOfNeitherForm) {
  root_.Write(kDeviceTree, "AA:BB:CC:DD:EE:FF");
  const std::function<void()> refusals[] = {[&] { controller_.Complete(kWriteBdAddr, 0x12); },
                                            [&] { controller_.CommandStatus(kWriteBdAddr, 0x01); },
                                            [&] { controller_.CommandStatus(kWriteBdAddr, 0x00); }};  // merely begun
  for (const auto& refuse : refusals) {
    auto accepted = Apply();
    ASSERT_EQ(controller_.NextCommand().size(), 9u);
    refuse();
    EXPECT_FALSE(accepted.get());
  }
  EXPECT_THAT(transport_.Events(), IsEmpty());
  EXPECT_EQ(log_.Count("Recv Failure VSE"), 2u);

  // What comes without having been asked for is the stack's.
  controller_.Complete(kWriteBdAddr, 0);
  EXPECT_TRUE(EventsReach(1));
}

TEST_F(BluetoothAddressTest, EndsWithoutAnAnswer) {
  root_.Write(kDeviceTree, "AA:BB:CC:DD:EE:FF");
  {
    auto accepted = Apply();
    ASSERT_EQ(controller_.NextCommand().size(), 9u);
    EXPECT_FALSE(accepted.get());  // after its two seconds
    EXPECT_TRUE(log_.Has("Apply: the controller did not answer"));
  }
  controller_.Complete(kWriteBdAddr, 0);  // too late: nobody's any more
  ASSERT_TRUE(EventsReach(1));

  auto halted = Apply();
  ASSERT_EQ(controller_.NextCommand().size(), 9u);
  HciFlowControl::Halt();
  EXPECT_FALSE(halted.get());
  EXPECT_EQ(log_.Count("Apply: the controller did not answer"), 1u) << "waited out, though halted";
  EXPECT_FALSE(ApplyProvisionBDAddress(transport_.flow())) << "halted before it began";
  EXPECT_FALSE(ApplyProvisionBDAddress(nullptr));
  EXPECT_TRUE(log_.Has("Apply: no transport to the controller, the address is not provisioned"));
}

TEST(ParseBluetoothAddressTest, TakesTheTwoFormsAndNothingElse) {
  const AddressBytes expected = {0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA};
  for (const std::string text :
       {"AA:BB:CC:DD:EE:FF", "aa:bb:cc:dd:ee:ff", "AABBCCDDEEFF", "aabbccddeeff", "AA:BB:CC:DD:EE:FF trailing",
        " AA:BB:CC:DD:EE:FF", "aabbccddeeff00", "AA: BB:\tCC:  DD: EE: FF", "AA BB CC DD EE FF", "AABBCC DDEEFF",
        "AA:BB:CC:DD:EE:FF 0x", "aabbccddeeff-1"}) {
    AddressBytes bytes{};
    EXPECT_TRUE(ParseBluetoothAddress(text, &bytes)) << text;
    EXPECT_EQ(bytes, expected) << text;
  }
  for (const std::string text : {"", "AA:BB:CC", "AA:BB:CC:DD:EE", "AA:BB:CC:DD:EE:", "AABBCCDDEE", "AA-BB-CC-DD-EE-FF",
                                 "0xAABBCCDDEEFF", "-1:BB:CC:DD:EE:FF", "GG:BB:CC:DD:EE:FF", "AA:BB:CC:DD:EE:GG",
                                 "AABB:CCDD:EEFF", "AA :BB:CC:DD:EE:FF", "AA - BB CC DD EE FF", "AA:BB:CC:DD:EE:-F",
                                 "AA:BB:CC:DD:EE:0xFF", "AA BB CC DD EE +F", "AA BB CC DD EE 0xFF", "AA BB CC DD EE"}) {
    AddressBytes bytes{1, 2, 3, 4, 5, 6};
    EXPECT_FALSE(ParseBluetoothAddress(text, &bytes)) << text;
    EXPECT_EQ(bytes, AddressBytes{}) << text;
  }
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci
