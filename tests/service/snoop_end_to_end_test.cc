// The vendor snoop log of a whole session, against what the board saw and what the usual readers make of it.
#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>

#include "support/board_session.h"
#include "support/btsnoop_file.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using ::aidl::vendor::tovani::bluetooth_ext::IBTChannelAvoidance;

constexpr char kLog[] = "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
constexpr uint8_t kCommand = 1;
constexpr uint8_t kAcl = 2;

// Runs a reader; what it complains of shows in its status.
ProgramResult RunReader(const std::string& command) { return RunProgram({"/bin/sh", "-c", command}); }

std::string Words(uint8_t type, const std::string& packet) {
  std::string words = std::to_string(type) + ":";
  for (const char byte : packet) words += " " + std::to_string(static_cast<uint8_t>(byte));
  return words;
}

// Over the UART, and by a sensor hub.
class SnoopEndToEndTest : public BoardSessionTest, public ::testing::WithParamInterface<bool> {
 protected:
  // What went over the wire, but for what is not captured: ordinary ACL data, and the sensor hub's batches.
  std::vector<std::string> OnTheWire() const {
    std::vector<std::string> words;
    for (const JournalEntry& entry : board_->Journal()) {
      if (entry.event != WireEvent::kReceived && entry.event != WireEvent::kSent) continue;
      const bool batched = GetParam() && entry.packet_type == kCommand && entry.bytes[0] == 0x4C;
      if (entry.packet_type != kAcl && !batched) {
        words.push_back(Words(entry.packet_type, std::string(entry.bytes.begin(), entry.bytes.end())));
      }
    }
    return words;
  }
};

TEST_P(SnoopEndToEndTest, AWholeSessionIsInTheLogAsItWasOnTheWireAndReadersTakeIt) {
  sim::BoardOptions options = SmallBoard();
  options.hub = GetParam();
  StartBoard(options);
  SetProperty("persist.bluetooth.vendor.btsnoop", "true");
  SetProperty("persist.bluetooth.btsnooplogmode", "full");
  // With the bring-up made for the client, it is in the log as well.
  SetProperty("persist.bluetooth.disable.accelerate.bt.on", "true");
  ASSERT_NO_FATAL_FAILURE(OpenSession());
  // One command at a time, so that the log's order is the wire's. The last one is refused.
  ASSERT_TRUE(Exchange({0x03, 0x0C, 0}));
  ASSERT_TRUE(Exchange({0x01, 0x10, 0}));
  ASSERT_TRUE(Exchange({0x09, 0x10, 0}));
  ASSERT_TRUE(Exchange({0x02, 0x20, 0}));
  ASSERT_TRUE(Exchange({0x34, 0x12, 0}));
  const auto avoidance = FindService<IBTChannelAvoidance>();
  ASSERT_TRUE(WaitFor([&] {
    return avoidance->setBluetoothChannelStatus({0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0x7F}).isOk();
  }));
  ASSERT_TRUE(service_->WaitForLog("OnEventReceive: (1) Recv Success VSE <[6]{14, 4, 1, 63, 12, 0}>"));
  ASSERT_TRUE(hal_->close().isOk());

  const auto file = ParseSnoopFile(root_.Read(kLog));
  ASSERT_TRUE(file.has_value());
  EXPECT_EQ(file->bytes_left, 0U);
  std::vector<std::string> logged;
  for (const SnoopRecord& record : file->records) {
    logged.push_back(Words(record.type, record.packet));
    EXPECT_EQ(record.flags, record.type == kCommand ? 2U : 3U);
  }
  EXPECT_THAT(logged, ElementsAreArray(OnTheWire()));

  const std::string path = root_.path() + kLog;
  const ProgramResult capinfos = RunReader("capinfos -c -M '" + path + "'");
  EXPECT_EQ(capinfos.status, 0) << capinfos.out;
  EXPECT_THAT(capinfos.out, HasSubstr(std::to_string(logged.size())));
  const ProgramResult malformed = RunReader("tshark -r '" + path + "' -Y '_ws.malformed || _ws.short'");
  EXPECT_EQ(malformed.status, 0);
  EXPECT_THAT(malformed.out, Not(HasSubstr("HCI")));
  // Every command but the patch records has the answer that the reader, on its second pass, pairs with it.
  const ProgramResult unanswered =
      RunReader("tshark -2 -r '" + path +
                "' -Y 'bthci_cmd && !bthci_cmd.response_in_frame && bthci_cmd.opcode != 0xfc4c' "
                "-T fields -e bthci_cmd.opcode");
  EXPECT_EQ(unanswered.out, "");
  const ProgramResult btmon = RunReader("btmon -r '" + path + "'");
  EXPECT_THAT(btmon.out, HasSubstr("Read Local Version Information"));
}

INSTANTIATE_TEST_SUITE_P(Hub, SnoopEndToEndTest, ::testing::Bool());

}  // namespace
}  // namespace bthal::test
