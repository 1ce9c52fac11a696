#include "shim/shim.h"
#include "conf/userial_type.h"
#include "hci_flow_control/hci_channel.h"

#include "conf/conf.h"
#include "hci_flow_control/hci_flow_control.h"
#include "os/kill_self.h"
#include "support/pty.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

using namespace ::bthal::test;

using conf::Config;

constexpr uint8_t kCommand = static_cast<uint8_t>(HciPacketType::kCommand);
constexpr uint8_t kAcl = static_cast<uint8_t>(HciPacketType::kAclData);
constexpr char kOverride[] = "persist.vendor.bluetooth.uart_path_override";
constexpr char kSocRevision[] = "ro.boot.hw.soc.rev";
constexpr char kPowerState[] = "/sys/class/rfkill/rfkill0/state";

const Bytes kReset = {0x03, 0x0C, 0x00};
const Bytes kResetOnWire = {0x01, 0x03, 0x0C, 0x00};
const Bytes kResetDone = {0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00};  // Command Complete: one credit, success
const Bytes kResetDoneOnWire = {0x04, 0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00};

class ShimTest : public LoggedTest {
 protected:
  ShimTest() {
    signal(SIGPIPE, SIG_IGN);
    os::SetKillSelfForTest([] {});
    root_.Write("/sys/class/rfkill/rfkill0/type", "bluetooth\n");
    root_.Write(kPowerState, "x");
    UseLine(line_);
    Config::GetInstance().uart_port = "/dev/ttyTest";
    Config::GetInstance().max_usf_recovery_time_s = 0;
  }
  ~ShimTest() override {
    channel::Deinitialize();
    os::SetKillSelfForTest(nullptr);
  }

  void UseLine(const Pty& line) {
    const std::string port = root_.Below("/dev/ttyTest");
    std::filesystem::remove(port);
    std::filesystem::create_symlink(line.host_path(), port);
  }

  HciFlowControl* Initialize(
      HciPacketCallback on_event = [](const HciPacket&) {}, std::function<void()> on_exception = nullptr) {
    const auto event = [this, on_event](const HciPacket& event) {
      {
        const std::lock_guard lock(mutex_);
        events_.emplace_back(event.begin(), event.end());
      }
      on_event(event);
    };
    const auto ignore = [](const HciPacket&) {};
    return channel::InitializeHciHandle({event, ignore, ignore, ignore, nullptr}, std::move(on_exception));
  }

  std::vector<Bytes> Events() {
    const std::lock_guard lock(mutex_);
    return events_;
  }

  Pty line_;
  std::mutex mutex_;
  std::vector<Bytes> events_;
};

// The sensor hub's path cannot be prepared here.
TEST_F(ShimTest, PathIsChosenByOverrideThenRevisionThenConfiguration) {
  const struct {
    const char* path_override;  // null: none
    bool revision_counts;
    bool is_hub;
    const char* log;
  } kSteps[] = {
      {nullptr, false, true, "InitializeController: PrepareUsfTransport failed"},
      {nullptr, true, false, "Use APM path due to HW rev"},
      {"aoc", true, true, "WARNING: AOC UART is unstable on this SoC revision"},
      {"aoc", true, true, "Override to use AOC path"},
      {"apm", true, false, "Override to use APM path"},
      {"AOC", false, true, "Unexpected setting 'AOC' for persist.vendor.bluetooth.uart_path_override - using default"},
  };
  Config& config = Config::GetInstance();
  config.userial_type = conf::kUserialAoc;
  const auto expect_path = [](bool is_hub) {
    EXPECT_EQ(InitializeController(), !is_hub);
    EXPECT_EQ(GetUserialType(), is_hub ? conf::kUserialAoc : conf::kUserialApm);
  };
  for (const auto& step : kSteps) {
    SCOPED_TRACE(step.log);
    log_.Clear();
    if (step.path_override != nullptr) SetProperty(kOverride, step.path_override);
    config.aoc_power_pin_ctrl_check_enabled = step.revision_counts;
    expect_path(step.is_hub);
    EXPECT_TRUE(log_.Has(step.log));
  }
  // Only the first revision is an early one.
  SetProperty(kOverride, "default");
  SetProperty(kSocRevision, "1");
  config.aoc_power_pin_ctrl_check_enabled = true;
  expect_path(true);
  // A transport that this build does not have is not a dead one: no lasting fallback.
  EXPECT_FALSE(IsBtUartFallback());
}

TEST_F(ShimTest, SensorHubPathRefusesWhatNeedsTheHub) {
  SetProperty(kOverride, "aoc");
  EXPECT_EQ(Initialize(), nullptr);
  EXPECT_TRUE(IsSerialAocUartPort());
  EXPECT_FALSE(IsUserialReady());
  EXPECT_FALSE(IsLpmRunning());
  EXPECT_FALSE(LpmSetup());
  EXPECT_TRUE(LpmSuspend());
  EXPECT_TRUE(LpmWakeUp());
  EXPECT_EQ(Send(kCommand, kReset.data(), kReset.size(), true), 0u);
  EXPECT_FALSE(GetTlDebugDump(STDERR_FILENO, "/dev/a", "/dev/b"));

  // Whose the power pin is: the hub's, but for the stages that say otherwise where that is asked for.
  Config& config = Config::GetInstance();
  config.hw_stages_not_controlling_power_pin_from_aoc = {"EVT1"};
  DeinitializeController();
  config.aoc_power_pin_ctrl_check_enabled = true;
  DeinitializeController();
  EXPECT_EQ(root_.Read(kPowerState), "x");
  SetProperty("ro.boot.hardware.revision", "EVT1");
  DeinitializeController();
  EXPECT_EQ(root_.Read(kPowerState), "0");
}

TEST_F(ShimTest, EarlySocRevisionsDriveTheSensorHubPathFaster) {
  const auto required = [](const char* path, const char* soc_revision) {
    const TempRoot device;  // a device has one revision
    SetProperty(kOverride, path);
    SetProperty(kSocRevision, soc_revision);
    InitializeController();
    return RequiredBaudRate();
  };
  EXPECT_EQ(required("aoc", ""), UartBaudRate::kUartBaudRate6000000);
  EXPECT_EQ(required("aoc", "1"), UartBaudRate::kUartBaudRate6000000);
  EXPECT_EQ(required("aoc", "2"), UartBaudRate::kUartBaudRate4000000);
  EXPECT_EQ(required("apm", "1"), UartBaudRate::kUartBaudRate4000000);
}

TEST_F(ShimTest, FallbackIsRememberedAndSnoopModeIsTheWordFull) {
  EnableBtUartFallback();
  EXPECT_TRUE(IsBtUartFallback());
  EXPECT_EQ(GetProperty("persist.bluetooth.disable.accelerate.bt.on", ""), "true");
  EXPECT_FALSE(IsBtSnoopLogModeOn());
  SetProperty("persist.bluetooth.btsnooplogmode", "filtered");
  EXPECT_FALSE(IsBtSnoopLogModeOn());
  SetProperty("persist.bluetooth.btsnooplogmode", "full");
  EXPECT_TRUE(IsBtSnoopLogModeOn());
}

TEST_F(ShimTest, PortThatDoesNotOpenLeavesThePowerOff) {
  std::filesystem::remove(root_.Below("/dev/ttyTest"));
  EXPECT_EQ(Initialize(), nullptr);
  EXPECT_EQ(root_.Read(kPowerState), "0");
  EXPECT_FALSE(channel::IsInitialized());
}

TEST_F(ShimTest, PowerCycleUnderALiveHandleForgetsWhatTheOldControllerOwed) {
  HciFlowControl* flow = Initialize();
  ASSERT_NE(flow, nullptr);
  flow->Send(kCommand, kReset.data(), kReset.size());
  flow->Send(kCommand, kReset.data(), kReset.size());  // waits behind the first
  ASSERT_THAT(line_.Read(4), ElementsAreArray(kResetOnWire));
  // An event, and behind it half an answer, which must not spoil the next controller's first.
  line_.Write({0x04, 0x01, 0x01, 0x00, /**/ 0x04, 0x0E, 0x04, 0x01});
  ASSERT_TRUE(WaitFor([&] { return Events().size() == 1; }));

  DeinitializeController();
  EXPECT_FALSE(IsUserialReady());
  EXPECT_EQ(root_.Read(kPowerState), "0");
  EXPECT_EQ(flow->Send(kAcl, kReset.data(), kReset.size()), 0u);

  const Pty fresh;
  UseLine(fresh);
  ASSERT_TRUE(channel::ReopenController());
  EXPECT_TRUE(channel::IsInitialized());
  EXPECT_EQ(flow->Send(kCommand, kReset.data(), kReset.size()), 4u);
  EXPECT_THAT(fresh.Read(4), ElementsAreArray(kResetOnWire));
  fresh.Write(kResetDoneOnWire);
  EXPECT_TRUE(WaitFor([&] { return Events().size() == 2; }));
  EXPECT_EQ(Events().back(), kResetDone);
  // Whoever opened the transport still hears of its end.
  fresh.Write({0x09, 0xAA});
  EXPECT_TRUE(WaitFor([] { return GetUserialType() == conf::kUserialDeinitialized; }));
}

TEST_F(ShimTest, TeardownOnTheReceiveThreadLetsItsWalkEnd) {
  const HciHandle handle = MakeHandle(Initialize([&](const HciPacket&) {
    if (Events().size() == 1) channel::Deinitialize();
  }));
  line_.Write(Joined(
      {kResetDoneOnWire, kResetDoneOnWire}));  // one read brings both: the second is delivered after the teardown
  EXPECT_TRUE(WaitFor([&] { return Events().size() == 2; }));
  EXPECT_TRUE(WaitFor([&] { return handle.expired(); }));
  EXPECT_FALSE(IsUserialReady());

  // And the next transport does not notice.
  HciFlowControl* next = Initialize();
  ASSERT_NE(next, nullptr);
  next->Send(kCommand, kReset.data(), kReset.size());
  EXPECT_THAT(line_.Read(4), ElementsAreArray(kResetOnWire));
}

TEST_F(ShimTest, UnknownPacketTypeIsReportedAndClosesTheTransport) {
  std::atomic<bool> told_first{false};
  const auto on_exception = [&] { told_first = channel::IsInitialized() && !log_.Has("error_code: (131)"); };
  ASSERT_NE(Initialize([](const HciPacket&) {}, on_exception), nullptr);
  line_.Write({0x09, 0xAA});
  EXPECT_TRUE(WaitFor([] { return GetUserialType() == conf::kUserialDeinitialized; }));
  EXPECT_TRUE(told_first);
  EXPECT_TRUE(log_.Has("error_code: (131)"));
  EXPECT_FALSE(channel::IsInitialized());
}

TEST_F(ShimTest, SendersTeardownAndRecoveryMayMeet) {
  std::atomic<bool> stop{false};
  std::mutex handle_mutex;
  HciHandle handle;
  const auto current = [&] {
    const std::lock_guard lock(handle_mutex);
    return handle.lock();
  };
  std::thread drain([&] {
    constexpr int kLookAgainMs = 10;
    char bytes[4096];
    while (!stop) {
      pollfd readable{line_.controller(), POLLIN, 0};
      if (poll(&readable, 1, kLookAgainMs) > 0) (void)!read(line_.controller(), bytes, sizeof(bytes));
    }
  });
  std::vector<std::thread> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([&] {
      while (!stop) {
        if (const auto flow = current()) flow->Send(kAcl, kReset.data(), kReset.size());
        channel::IsInitialized();
      }
    });
  }
  constexpr int kRounds = 5;
  for (int round = 0; round < kRounds; ++round) {
    HciFlowControl* flow = Initialize();
    ASSERT_NE(flow, nullptr);
    {
      const std::lock_guard lock(handle_mutex);
      handle = MakeHandle(flow);
    }
    line_.Write(kResetDoneOnWire);
    EXPECT_TRUE(channel::ReopenController());
    line_.Write(kResetDoneOnWire);
    EXPECT_TRUE(WaitFor([&] { return !Events().empty(); }));
    channel::Deinitialize();
  }
  stop = true;
  for (std::thread& sender : senders) sender.join();
  drain.join();
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci::shim
