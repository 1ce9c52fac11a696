// The sensor hub's path from end to end: the real service, the board with its hub, the controller's journal as witness.
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>
#include <android-base/stringprintf.h>

#include "support/board_session.h"
#include "support/diagnostics.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using ::android::base::StringPrintf;

uint16_t Opcode(const Bytes& command) { return static_cast<uint16_t>(command[0] | command[1] << 8); }

Bytes SpeedCommand(uint32_t rate) {
  Bytes command{0x18, 0xFC, 6, 0, 0};
  for (int i = 0; i < 4; ++i) command.push_back(static_cast<uint8_t>(rate >> 8 * i));
  return command;
}

class HubTest : public BoardSessionTest {
 protected:
  void StartHubBoard(std::vector<std::string> faults = {}, const std::string& settings = "") {
    sim::BoardOptions options = SmallBoard(std::move(faults));
    options.hub = true;
    StartHubBoardWith(std::move(options), settings);
  }
  void StartHubBoardWith(sim::BoardOptions options, const std::string& settings) {
    root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf", "MaxUsfRecoveryTimeInSeconds = 2\n" + settings);
    StartBoard(std::move(options));
  }

  // What the hub was asked so far that begins so.
  size_t Asked(const std::string& words) const {
    return static_cast<size_t>(std::ranges::count_if(Texts(*board_, WireEvent::kHubRequest),
                                                     [&](const std::string& text) { return text.starts_with(words); }));
  }

  bool Reported(int code) const {
    return service_->CountInLog(StringPrintf("root inflamed event with error_code: (%d)", code)) == 1;
  }

  const Bytes read_local_version_ = {0x01, 0x10, 0x00};
};

TEST_F(HubTest, PutsTheSameCommandsOnTheWireAsTheUart) {
  sim::BoardOptions options;  // with a patch of several batches
  StartBoard(options);
  OpenSession();
  std::vector<Bytes> expected = board_->Commands();
  service_.reset();
  hal_.reset();
  board_.reset();
  ASSERT_THAT(expected, Contains(SpeedCommand(4000000)).Times(2));
  std::ranges::replace(expected, SpeedCommand(4000000), SpeedCommand(6000000));

  std::filesystem::remove(root_.Below("/vendor/etc/bluetooth/bt_vendor.conf"));
  options.hub = true;
  client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  SetProperty("persist.bluetooth.otp.status", "");
  StartHubBoardWith(options, "");
  OpenSession();
  EXPECT_EQ(board_->Commands(), expected);
  EXPECT_EQ(Count(*board_, WireEvent::kLostBytes), 0U);
  EXPECT_EQ(Count(*board_, WireEvent::kProtocolError), 0U);
  EXPECT_TRUE(Exchange(read_local_version_));

  // The download: batches of up to 32 KiB, each a message, and a twentieth of the messages of the direct one.
  const auto records = std::ranges::count(expected, 0xFC4C, Opcode);
  EXPECT_GT(Asked("batch of 32"), 0U);
  EXPECT_LE(Asked("batch") * 20, static_cast<size_t>(records));
}

TEST_F(HubTest, AFirstResetThatFailsIsMendedByAPowerCycle) {
  StartHubBoard({"wrong-status,opcode=reset,status=3"});
  OpenSession();
  EXPECT_EQ(Asked("power on"), 2U);
  EXPECT_TRUE(Exchange(read_local_version_));
}

TEST_F(HubTest, ACommandFindsTheSleepingControllerAwake) {
  StartHubBoard();
  OpenSession();
  ASSERT_TRUE(Await(*board_, WireEvent::kSleepModeSet));
  const auto slept = [&](const std::vector<JournalEntry>& journal) {
    return journal.back().event == WireEvent::kWakeLine && journal.back().value == 0;
  };
  ASSERT_TRUE(board_->WaitFor(slept, seconds(20)));
  // Deaf, but for what is sent with the wake line up.
  const auto line_low = steady_clock::now();
  ASSERT_TRUE(WaitFor([&] { return steady_clock::now() - line_low > milliseconds(150); }));
  EXPECT_TRUE(Exchange(read_local_version_));
  EXPECT_EQ(Count(*board_, WireEvent::kLostBytes), 0U);
}

// How the hub spoils a bring-up, and with which kind the service ends.
struct Spoiled {
  const char* name;
  const char* fault;
  int code;
  const char* info;
};

void PrintTo(const Spoiled& spoiled, std::ostream* out) { *out << spoiled.name; }

class SpoiledHubTest : public HubTest, public ::testing::WithParamInterface<Spoiled> {};

TEST_P(SpoiledHubTest, EndsTheServiceWithItsKindAndNotForGood) {
  StartHubBoard({GetParam().fault});
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_TRUE(Reported(GetParam().code)) << service_->Log();
  EXPECT_EQ(service_->CountInLog(std::string("error_info: sensor hub: ") + GetParam().info), 1U);
  board_->ClearFaults();
  ASSERT_NO_FATAL_FAILURE(OpenSession());
  EXPECT_TRUE(Exchange(read_local_version_));
  EXPECT_EQ(GetProperty("bluetooth.uart.fallback", ""), "");
}

const Spoiled kSpoiled[] = {
    {"Power", "hub-status,request=power,status=1,after=1", 0xC1, "power on failed with 0xC1"},
    {"Port", "hub-status,request=port,status=12", 0xCC, "open port failed with 0xCC"},
    {"Speed", "hub-status,request=speed,status=9", 0xC9, "speed failed with 0xC9"},
    {"LowPower", "hub-status,request=low-power,status=8", 0xC8, "low-power mode on failed with 0xC8"},
    {"Packet", "hub-status,request=packet,status=14", 0xCE, "HCI packet failed with 0xCE"},
    {"Batch", "hub-status,request=batch,status=20", 0xD4, "batch failed with 0xD4"},
    {"BeyondTheCatalogue", "hub-status,request=port,status=21", 0xC1, "open port failed with 0xC1"},
    {"PortUnanswered", "hub-never,request=port", 0xD0, "open port failed with 0xD0"},
    {"PacketUnanswered", "hub-never,request=packet,after=3", 0xD0, "HCI packet failed with 0xD0"},
    {"UnknownType", "hub-unknown-type,request=speed", 0xD5, "packet type 0x09"},
    {"BrokenEvent", "hub-broken-event,request=speed", 0xD6, "broken connection event"},
    {"GoneAtThePort", "hub-hang-up,request=port", 0xCA, "open port failed with 0xCA"},
    {"GoneInTheDownload", "hub-restart,request=batch,ms=200", 0xCA, "the connection is another one"},
};

INSTANTIATE_TEST_SUITE_P(Faults, SpoiledHubTest, ::testing::ValuesIn(kSpoiled),
                         [](const auto& info) { return info.param.name; });

TEST_F(HubTest, NoiseDelayAndAPauseOfItsConnectionAreSurvived) {
  StartHubBoard({"hub-garbage,request=power", "hub-unverified,request=port", "hub-too-large,request=speed",
                 "hub-twice,request=packet,count=3", "hub-late,request=packet,after=3,ms=700",
                 "hub-pause,request=batch,ms=300", "hub-lost,request=low-power,ms=400"});
  OpenSession();
  EXPECT_EQ(Count(*board_, WireEvent::kFault), 9U);
  EXPECT_TRUE(Exchange(read_local_version_));
  EXPECT_EQ(service_->CountInLog("I bthal.usf: connected to the sensor hub"), 1U);
  EXPECT_EQ(service_->CountInLog("E bthal.usf: the sensor hub sent what is no message of its, 64 bytes"), 1U);
  EXPECT_EQ(service_->CountInLog("E bthal.usf: the sensor hub has lost its connection"), 1U);
  EXPECT_EQ(service_->CountInLog("I bthal.usf: the sensor hub has its connection back"), 1U);
  EXPECT_THAT(ReportOf(*hal_), HasSubstr("Sensor hub: port open, low-power mode on, 6 messages dropped\n"));
  EXPECT_EQ(Asked("debug dump"), 0U) << "for a report, which is no crash";
  EXPECT_EQ(GetProperty("bluetooth.usf.dead", ""), "");
}

class DyingHubTest : public HubTest {
 protected:
  // The process after the one that has found the transport dead has the UART, and works.
  void ExpectFallback() {
    EXPECT_EQ(GetProperty("bluetooth.usf.dead", ""), "true");
    client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
    ASSERT_NO_FATAL_FAILURE(OpenSession());
    EXPECT_EQ(GetProperty("bluetooth.uart.fallback", ""), "true");
    EXPECT_EQ(GetProperty("persist.bluetooth.disable.accelerate.bt.on", ""), "true");
    EXPECT_EQ(service_->CountInLog("InitializeController: : USF transport is dead!"), 1U);
    EXPECT_EQ(board_->Commands().back()[1], 0xFC);  // the address, at the end of the bring-up
    EXPECT_TRUE(Exchange(read_local_version_));
  }
};

TEST_F(DyingHubTest, OneDeathIsRecoveredAndASecondSoonAfterFallsBack) {
  StartHubBoard();
  OpenSession();
  board_->RestartHub(milliseconds(300));
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_EQ(service_->CountInLog("E bthal.usf: the sensor hub has hung up"), 1U);
  EXPECT_EQ(service_->CountInLog("I bthal.usf: the sensor hub is back"), 1U);
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 0x04, 0x58, 0x05, 0x00, 0xCA}));
  client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  ASSERT_NO_FATAL_FAILURE(OpenSession());
  EXPECT_TRUE(Exchange(read_local_version_));
  EXPECT_EQ(GetProperty("bluetooth.usf.dead", ""), "");

  board_->RestartHub(milliseconds(0));
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 0x04, 0x58, 0x05, 0x00, 0xCB}));
  EXPECT_EQ(service_->CountInLog(" s after the loss before, which is less than 3600 s"), 1U);
  EXPECT_EQ(service_->CountInLog("error_info: sensor hub: the transport is dead"), 1U);
  ExpectFallback();
}

TEST_F(DyingHubTest, OneThatStaysAwayFallsBack) {
  StartHubBoard();
  OpenSession();
  board_->RestartHub(std::chrono::minutes(10));
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent({0xFF, 0x04, 0x58, 0x05, 0x00, 0xCB}));
  ExpectFallback();
}

TEST_F(DyingHubTest, OneThatTellsOfALossAndNotOfItsEndFallsBack) {
  StartHubBoard({"hub-lost,request=low-power,ms=0"}, "ApmUartSkipSuspend = 1\n");
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_TRUE(Reported(0xCB));
  EXPECT_EQ(service_->CountInLog("E bthal.usf: the sensor hub's connection has not come back"), 1U);
  EXPECT_EQ(service_->CountInLog("InitializeController, enable apm uart skip suspend"), 1U);
  ExpectFallback();
  EXPECT_EQ(service_->CountInLog("InitializeController, disable apm uart skip suspend"), 1U);
  EXPECT_TRUE(Await(*board_, WireEvent::kUartDebug, 2));
  EXPECT_THAT(Texts(*board_, WireEvent::kUartDebug), ElementsAre("8", "9")) << "of the port that the hub does not use";
}

TEST_F(HubTest, WithoutAHubThePreparationIsReportedAndNothingFallsBack) {
  sim::BoardOptions options = SmallBoard();
  root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf", "UserialType = 2\nMaxUsfRecoveryTimeInSeconds = 1\n");
  StartBoard(options);
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_TRUE(Reported(0xC0));
  EXPECT_EQ(GetProperty("bluetooth.uart.fallback", ""), "");
  EXPECT_EQ(GetProperty("bluetooth.usf.dead", ""), "");
}

TEST_F(HubTest, TheUartPathPreparesTheHubBesides) {
  StartHubBoard();
  SetProperty("persist.vendor.bluetooth.uart_path_override", "apm");
  OpenSession();
  EXPECT_TRUE(WaitFor([&] { return Asked("connected") == 1; }));
  EXPECT_EQ(Asked("power"), 0U);
  // Its end is nothing to the UART.
  board_->RestartHub(milliseconds(0));
  EXPECT_TRUE(WaitFor([&] { return Asked("connected") == 2; }));
  EXPECT_TRUE(Exchange(read_local_version_));
}

TEST_F(HubTest, TheFinderGoesOutOverIt) {
  const Bytes start = {0x62, 0xFD, 9, 2, 0x40, 6, 0x0A, 0, 4, 0, 0, 0x50};
  StartHubBoard();
  OpenSession();
  const auto finder = FindService<::aidl::vendor::tovani::bluetooth_ext::IBluetoothFinder>();
  ASSERT_TRUE(finder->sendPrecomputedKeys(Bytes(20, 7)).isOk());
  ASSERT_TRUE(finder->setPoweredOffMode(true).isOk());
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(board_->Commands().back(), start);
}

TEST_F(HubTest, ACrashTellsOfADumpThatTheHubRefuses) {
  StartHubBoard({"hub-status,request=dump,status=1"});
  OpenSession();
  AddFault("root-inflammation,now");
  EXPECT_TRUE(service_->WaitForLog("dump is not whole: 0 fragments came; sensor hub: debug dump failed with 0xC1"));
}

TEST_F(HubTest, ACrashTakesTheHubsDumpInItsOrder) {
  StartHubBoard({"hub-shuffle,request=dump"});
  OpenSession();
  AddFault("root-inflammation,now");
  const auto dump = [&] {
    std::string content;
    for (const std::string& name : CoreDumps(root_, "coredump_bt_chredump_")) content += root_.Read(kCoreDumps + name);
    return content;
  };
  EXPECT_TRUE(WaitFor([&] { return dump().find("hub fragment 3") != std::string::npos; }));
  std::vector<size_t> places;
  for (const char* fragment : {"fragment 0", "fragment 1", "fragment 2", "fragment 3"}) {
    places.push_back(dump().find(fragment));
  }
  EXPECT_TRUE(std::ranges::is_sorted(places)) << dump();
  EXPECT_EQ(service_->CountInLog("debug dump is not whole"), 0U);
}

}  // namespace
}  // namespace bthal::test
