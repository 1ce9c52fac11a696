// What a broken controller does to the real service, and what the service makes of it.
#include "support/board_session.h"
#include "support/diagnostics.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Bytes kReadAddress = {0x09, 0x10, 0};
constexpr uint8_t kEventType = 4;

class WireFaultsTest : public BoardSessionTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(StartBoard());
    ASSERT_NO_FATAL_FAILURE(OpenSession());
  }
};

TEST_F(WireFaultsTest, AnUnknownPacketTypeIsReportedAndEndsTheService) {
  board_->SendRaw({0x06, 0xAA, 0xBB});
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 4, 0x58, 5, 0, 0x83}));
  EXPECT_THAT(service_->Log(), HasSubstr("OnDataReady: Unimplemented Packet Type: 6 detected!"));
  EXPECT_THAT(service_->Log(),
              HasSubstr("Host Received Unimplemented Packet Type: 6, bytes_read: 3, packet: 06, aa, bb, "
                        "00, 00, 00, 00"));
  EXPECT_THAT(service_->Log(), HasSubstr("debug::HostUnimplementedPacketType"));
  EXPECT_EQ(CrashInfos(root_).size(), 1U);
}

TEST_F(WireFaultsTest, AnEventTooShortForItsOpcodeIsReportedAndEndsTheService) {
  board_->SendPacket(kEventType, {0x0E, 2, 1, 3});
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 4, 0x58, 5, 0, 0x82}));
  EXPECT_THAT(service_->Log(), HasSubstr("Invalid HCI event: [4]{14, 2, 1, 3}"));
}

// Nobody sends anything. With a client, and without one under a controller that is kept up for the next.
TEST_F(WireFaultsTest, AHangUpWhileIdleIsReportedAndEndsTheService) {
  board_->HangUpUart();
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 4, 0x58, 5, 0, 0x84}));
  EXPECT_EQ(service_->CountInLog("OnDataReady: Unexpected EOF reading the packet type!"), 1U);
  EXPECT_EQ(service_->CountInLog("(132), error_info: Host HCI H4 TX Error: the port has hung up"), 1U);

  ASSERT_NO_FATAL_FAILURE(OpenSession());
  ASSERT_TRUE(hal_->close().isOk());
  board_->HangUpUart();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("(132), error_info: Host HCI H4 TX Error: the port has hung up"), 2U);
}

// A root inflammation or another cry of the controller: what the stack sees of it and what is kept.
struct Cry {
  const char* name;
  Bytes event;
  bool reaches_stack;
  size_t crash_infos;
  size_t core_dumps;
};

void PrintTo(const Cry& cry, std::ostream* out) { *out << cry.name; }

class CryTest : public WireFaultsTest, public ::testing::WithParamInterface<Cry> {};

TEST_P(CryTest, LeavesItsFilesAndTheServiceLives) {
  const Cry& cry = GetParam();
  board_->SendPacket(kEventType, cry.event);
  board_->SendPacket(kEventType, cry.event);  // a second one starts no second dump
  ASSERT_TRUE(Exchange(kReadAddress));        // both have been dealt with
  if (cry.reaches_stack) {
    EXPECT_TRUE(client_->WaitForEvent(cry.event));
  } else {
    EXPECT_THAT(client_->Events(), Not(Contains(cry.event)));
  }
  EXPECT_EQ(CrashInfos(root_).size(), cry.crash_infos);
  EXPECT_EQ(CoreDumps(root_).size(), cry.core_dumps);
  EXPECT_TRUE(service_->IsAlive());
}

const Cry kCries[] = {
    {"RootInflammation", {0xFF, 4, 0x58, 5, 0, 0x30}, true, 1, 1},
    {"QuietMajorFault", {0xFF, 4, 0x58, 5, 0, 0x20}, false, 0, 0},
    {"QuietBigHammer", {0xFF, 4, 0x58, 5, 0, 0x7F}, false, 0, 0},
    {"LastBeforeTheSensorHub", {0xFF, 4, 0x58, 5, 0, 0xBF}, true, 1, 1},
    {"FirstOfTheSensorHub", {0xFF, 4, 0x58, 5, 0, 0xC0}, true, 0, 1},
    {"LastOfTheSensorHub", {0xFF, 4, 0x58, 5, 0, 0xDF}, true, 0, 1},
    {"Arbitrator", {0xFF, 4, 0x58, 5, 0, 0xE0}, true, 1, 1},
    {"HardwareError", {0x10, 1, 0x42}, true, 1, 1},
    // The dump and the fragments' own file.
    {"DebugInformation", {0xFF, 7, 0x57, 0, 0, 1, 2, 3, 4}, false, 1, 2},
    {"DebugInformationTooShort", {0xFF, 6, 0x57, 0, 0, 1, 2, 3}, false, 0, 0},
    {"MemoryDumpFragment", {0xFF, 6, 0x58, 19, 0, 1, 2, 3}, false, 1, 2},
};

INSTANTIATE_TEST_SUITE_P(Controller, CryTest, ::testing::ValuesIn(kCries),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace bthal::test
