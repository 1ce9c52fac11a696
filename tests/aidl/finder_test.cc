#include "aidl/bluetooth_pof.h"

#include <numeric>

#include "support/btsnoop_file.h"
#include "support/hal_client.h"
#include "support/test.h"
#include "support/uart_transport.h"
#include "vnd_snoop_logger.h"

namespace vendor::tovani::bluetooth_ext::finder::aidl::implementation {
namespace {

using namespace ::bthal::test;

using ::android::hardware::bluetooth::VndSnoopLogger;

const Bytes kStart = {0x62, 0xFD, 9, 2, 0x40, 6, 0x0A, 0, 4, 0, 0, 0x50};

Bytes Keys(size_t bytes) {
  Bytes keys(bytes);
  std::iota(keys.begin(), keys.end(), 0);
  return keys;
}

// The command that carries `count` whole keys of the store from byte `offset` on.
Bytes KeysCommand(const Bytes& store, size_t offset, uint8_t count) {
  Bytes command = {0x62, 0xFD, static_cast<uint8_t>(3 + 20 * count), 1, static_cast<uint8_t>(offset / 20), count};
  std::copy_n(store.begin() + static_cast<ptrdiff_t>(offset), 20 * count, std::back_inserter(command));
  return command;
}

// Command Complete of the finder command, with the form echoed.
Bytes Answer(uint8_t status, uint8_t form) { return {0x0E, 5, 1, 0x62, 0xFD, status, form}; }

class FinderTest : public TransportTest {
 protected:
  void Send(const Bytes& keys) { EXPECT_TRUE(finder_->sendPrecomputedKeys(keys).isOk()); }
  void Enter() {
    finder_->OnBluetoothEnabled(transport_.flow());
    ASSERT_TRUE(finder_->enterPoweredOffMode());
  }

  std::shared_ptr<BluetoothFinder> finder_ = ndk::SharedRefBase::make<BluetoothFinder>();
};

TEST_F(FinderTest, TwentyFiveKeysGoOutInThreeCommandsOneAtATimeThenTheStart) {
  const Bytes keys = Keys(500);
  Send(Bytes(keys.begin(), keys.begin() + 7));  // calls add up
  Send(Bytes(keys.begin() + 7, keys.end()));
  ASSERT_NO_FATAL_FAILURE(Enter());
  for (const Bytes& command : {KeysCommand(keys, 0, 12), KeysCommand(keys, 240, 12), KeysCommand(keys, 480, 1)}) {
    EXPECT_EQ(controller_.NextCommand(), command);
    controller_.SendEvent(Answer(0, 1));
  }
  EXPECT_EQ(controller_.NextCommand(), kStart);
  EXPECT_EQ(UartTransport::Deaths(), 0);
  EXPECT_THAT(transport_.Events(), IsEmpty());
  controller_.SendEvent(Answer(0, 2));
  EXPECT_TRUE(log_.WaitFor("OnEventReceive: Entered powered off mode"));
  EXPECT_TRUE(WaitFor([] { return UartTransport::Deaths() == 1; }));
}

TEST_F(FinderTest, APartKeyStaysBehindAndARefusedKeyDoesNotEndTheMode) {
  const Bytes keys = Keys(30);
  finder_->setPoweredOffMode(true);
  Send(keys);
  ASSERT_NO_FATAL_FAILURE(Enter());
  EXPECT_EQ(controller_.NextCommand(), KeysCommand(keys, 0, 1));
  controller_.SendEvent(Answer(0x12, 1));
  EXPECT_EQ(controller_.NextCommand(), kStart);
  EXPECT_TRUE(log_.WaitFor("OnEventReceive: (2) Recv Failure VSE"));
  EXPECT_EQ(log_.Text({"bthal.aidl.pof"}), R"(
I setPoweredOffMode: 1
I sendPrecomputedKeys: 0
D OnBluetoothEnabled
I enterPoweredOffMode
I sendKeys: [26]{98, 253, 23, 1, 0, 1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}
I startPoweredOffMode: [12]{98, 253, 9, 2, 64, 6, 10, 0, 4, 0, 0, 80}
W OnEventReceive: (2) Recv Failure VSE <[7]{14, 5, 1, 98, 253, 18, 1}>
)");
}

// Whatever the controller says to the start, the process ends, and the log that was being written holds the answer.
TEST_F(FinderTest, AFailedStartIsLoggedAndEndsTheProcessToo) {
  root_.Below("/data/vendor/bluetooth/x");
  SetProperty("persist.bluetooth.vendor.btsnoop", "true");
  SetProperty("persist.bluetooth.btsnooplogmode", "full");
  VndSnoopLogger::Get().Start();
  Send(Keys(20));
  ASSERT_NO_FATAL_FAILURE(Enter());
  controller_.NextCommand();
  controller_.SendEvent(Answer(0, 1));
  controller_.NextCommand();
  controller_.SendEvent(Answer(0x0C, 2));
  ASSERT_TRUE(WaitFor([] { return UartTransport::Deaths() == 1; }));
  EXPECT_TRUE(log_.Has("OnEventReceive: Entered powered off mode failed"));
  EXPECT_FALSE(VndSnoopLogger::Get().is_logging());

  const auto file = ParseSnoopFile(root_.Read("/data/vendor/bluetooth/btsnoop_hci_vnd.log"));
  ASSERT_TRUE(file);
  std::vector<Bytes> logged;
  for (const auto& record : file->records) logged.emplace_back(record.packet.begin(), record.packet.end());
  // The claimed answer to the keys is logged by the gate as every claimed event is.
  EXPECT_THAT(logged, ElementsAre(KeysCommand(Keys(20), 0, 1), kStart, Answer(0, 1), Answer(0x0C, 2)));
}

// A controller that does not know the command, or knows no form: it answers with a status alone, or with a Command
// Status. The last one answers the start, and ends the process; one that only begins the command ends nothing.
TEST_F(FinderTest, AShortRefusalOfTheStartEndsTheProcessToo) {
  const Bytes short_answer = {0x0E, 4, 1, 0x62, 0xFD, 0x01};
  const Bytes refused = {0x0F, 4, 0x01, 1, 0x62, 0xFD};
  const Bytes begun = {0x0F, 4, 0x00, 1, 0x62, 0xFD};
  int deaths = 0;
  for (const Bytes& refusal : {short_answer, refused}) {
    finder_ = ndk::SharedRefBase::make<BluetoothFinder>();
    Send(Keys(20));
    ASSERT_NO_FATAL_FAILURE(Enter());
    EXPECT_EQ(controller_.NextCommand(), KeysCommand(Keys(20), 0, 1));
    controller_.SendEvent(refusal);
    EXPECT_EQ(controller_.NextCommand(), kStart);
    controller_.SendEvent(begun);
    EXPECT_TRUE(log_.WaitFor("HciEventPreProcess: HCI Event 0xf Opcode 0xfd62 handled"));
    EXPECT_EQ(UartTransport::Deaths(), deaths);
    log_.Clear();
    controller_.SendEvent(refusal);
    EXPECT_TRUE(WaitFor([&] { return UartTransport::Deaths() == deaths + 1; }));
    deaths = UartTransport::Deaths();
    EXPECT_TRUE(log_.Has("OnEventReceive: Entered powered off mode failed"));
    log_.Clear();
  }
  EXPECT_THAT(transport_.Events(), IsEmpty());
}

TEST_F(FinderTest, RefusesWithoutTransportWithoutKeysAndASecondTime) {
  EXPECT_FALSE(finder_->enterPoweredOffMode());
  EXPECT_TRUE(log_.Has("Unable to send precomputed keys: hci_handle is nullptr"));
  EXPECT_FALSE(finder_->enterPoweredOffMode());
  EXPECT_EQ(log_.Lines().back().text, ": Already entered powered off mode");

  const auto without_keys = ndk::SharedRefBase::make<BluetoothFinder>();
  without_keys->OnBluetoothEnabled(transport_.flow());
  EXPECT_FALSE(without_keys->enterPoweredOffMode());
  EXPECT_TRUE(log_.Has("Unable to send precomputed keys: No key"));

  const auto dead_transport = ndk::SharedRefBase::make<BluetoothFinder>();
  EXPECT_TRUE(dead_transport->sendPrecomputedKeys(Keys(20)).isOk());
  dead_transport->OnBluetoothEnabled(transport_.flow());
  log_.Clear();
  transport_.Close();
  EXPECT_FALSE(dead_transport->enterPoweredOffMode());
  EXPECT_EQ(log_.Lines().back().text, "Unable to send precomputed keys: hci_handle is nullptr") << "and no start";
}

// What the stack itself asked for is the stack's, also when it is too short to say how it went.
TEST_F(FinderTest, AnswersToOthersReachTheStack) {
  finder_->OnBluetoothEnabled(transport_.flow());
  controller_.SendEvent(Answer(0, 2));
  controller_.SendEvent({0x0E, 3, 1, 0x62, 0xFD});
  EXPECT_TRUE(EventsReach(2));
  EXPECT_EQ(UartTransport::Deaths(), 0);
}

TEST_F(FinderTest, TheKeyStoreWarnsOfMoreThanItsIndexReachesAndDoesNotGrowForEver) {
  Send(Keys(256 * 20));
  EXPECT_FALSE(log_.Has("apart"));
  Send(Keys(20));
  EXPECT_TRUE(log_.Has("sendPrecomputedKeys: 257 keys, but the controller's index tells only 256 apart"));
  Send(Bytes((1 << 20) - 257 * 20));
  const auto refused = finder_->sendPrecomputedKeys({1});
  EXPECT_EQ(refused.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
  EXPECT_STREQ(refused.getMessage(), "Key store is full!");
  EXPECT_TRUE(log_.Has("sendPrecomputedKeys: key store is full, 1 bytes refused"));
}

}  // namespace
}  // namespace vendor::tovani::bluetooth_ext::finder::aidl::implementation
