

#include "bluetooth_Activity.h"
#include "btqnl_protocol/btqnl_protocol.h"
#include "os/thread_timer.h"
#include "shim/low_power.h"
#include "shim/shim.h"
#include "support/diagnostics.h"
#include "support/fifo_node.h"
#include "support/scripted_bring_up.h"
#include "support/test.h"

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

using hci::shim::LowPowerLink;

constexpr milliseconds kWakeInterval(800);

class BtqnlLpmTest : public ScriptedBringUpTest {
 protected:
  // A whole bring-up; it leaves the link awake, from its last command.
  void BringUp(uint16_t refused = 0) {
    auto ready = Initialize();
    Play(ready, Refusal(refused));
    ASSERT_TRUE(ready.get());
  }
  void Send(uint16_t opcode) {
    const Bytes command = Command(opcode);
    transport_.flow()->SendNoAck(1, command.data(), command.size());
  }
  bool FallsAsleep(const std::string& wake_line) {
    return WaitFor([&] { return wake_line_.History() == wake_line; });
  }

  FifoNode driver_{root_, "/proc/bluetooth/sleep/lpm"};
  FifoNode wake_line_{root_, "/proc/bluetooth/sleep/btwrite"};
  FifoNode acquired_{root_, "/sys/power/wake_lock"};
  FifoNode released_{root_, "/sys/power/wake_unlock"};
  const std::string lock_ = "bthal_wakelock\n";
};

TEST_F(BtqnlLpmTest, FallsAsleepAndRaisesTheLineBeforeTheFirstByte) {
  BringUp();
  const Recorded recorded;
  // Bring-up's own lock, then the link's; bring-up's release by name.
  EXPECT_EQ(acquired_.History(), lock_ + lock_);
  EXPECT_EQ(released_.History(), lock_);
  ASSERT_TRUE(FallsAsleep("110"));  // driver set-up, 0xFC27, quiet
  EXPECT_TRUE(WaitFor([&] { return released_.History() == lock_ + lock_; }));
  EXPECT_EQ(LowPowerLink::Get().lpm_statistics().last_wake_count, 1u);
  EXPECT_GE(LowPowerLink::Get().lpm_statistics().last_awake_ms, kWakeInterval.count());

  // When the command is here, the line and the lock have long been taken.
  const auto asleep = std::chrono::steady_clock::now();
  Send(kReset);
  EXPECT_GE(std::chrono::steady_clock::now() - asleep, milliseconds(10)) << "the controller takes that long to wake";
  ASSERT_EQ(controller_.NextCommand(), Command(kReset));
  EXPECT_EQ(wake_line_.History(), "1101");
  EXPECT_EQ(acquired_.History(), lock_ + lock_ + lock_);
  Send(kReset);
  ASSERT_TRUE(FallsAsleep("11010"));  // awake already: no second '1'
  EXPECT_TRUE(WaitFor([&] { return released_.History() == lock_ + lock_ + lock_; }));
  EXPECT_EQ(LowPowerLink::Get().lpm_statistics().last_wake_count, 2u);
  EXPECT_EQ(LowPowerLink::Get().lpm_statistics().total_wake_count, 3u);
  EXPECT_FALSE(LowPowerLink::Get().lpm_statistics().last_wake_time.empty());
  aidl::qnlbtlinux::RegisterDiagnostics();
  EXPECT_THAT(DumpText(), ContainsRegex("Transmissions in the link's awake periods: 3; the last from "
                                        "20[0-9-]+ [0-9:.]+: [0-9]+ ms, 2 transmissions\n"));

  protocol_.Shutdown();
  EXPECT_EQ(driver_.History(), "10");
  EXPECT_EQ(released_.History(), lock_ + lock_ + lock_) << "released, though not held";
  EXPECT_EQ(recorded.Text(), R"(
LpmWakeUpTimeout
LpmSuspend: Deassert
wakelock_release
LpmWakeUp
wakelock_acquire
LpmWakeUp: Assert
LpmWakeUpTimeout
LpmSuspend: Deassert
wakelock_release
Shutdown
LpmTeardown: LPM disabling
skip duplicated wakelock_release
)");
}

TEST_F(BtqnlLpmTest, AWakeLineThatCannotBeDrivenIsToldAndGivenUp) {
  BringUp();
  ASSERT_TRUE(FallsAsleep("110"));
  ASSERT_TRUE(WaitFor([&] { return released_.History() == lock_ + lock_; }));
  log_.Clear();
  const Recorded recorded;
  wake_line_.CloseReader();
  LowPowerLink::Get().LpmWakeUp();
  LowPowerLink::Get().LpmWakeUp();  // the first has the lock, and no line
  EXPECT_EQ(acquired_.History(), lock_ + lock_ + lock_);
  protocol_.Shutdown();
  EXPECT_EQ(released_.History(), lock_ + lock_ + lock_);
  EXPECT_EQ(log_.Text({"bthal.hwcontrol", "bthal.qnlproto"}), R"(
E LpmWakeUp: Unable to wake up LPM:Broken pipe (32)
E LpmWakeUp: Unable to wake up LPM:Broken pipe (32)
I Shutdown
I LpmTeardown: LPM disabling
D LpmTeardown: LPM Disabled
)");
  EXPECT_EQ(recorded.Text(), R"(
LpmWakeUp
wakelock_acquire
LpmWakeUp: Unable to wake up LPM, Broken pipe (32)
LpmWakeUp
skip duplicated wakelock_acquire
LpmWakeUp: Unable to wake up LPM, Broken pipe (32)
Shutdown
LpmTeardown: LPM disabling
wakelock_release
)");
}

TEST_F(BtqnlLpmTest, ALineThatCannotFallIsTornDown) {
  BringUp();
  const Recorded recorded;
  {
    const LowPowerLink::Transmission awake;
    ASSERT_TRUE(hci::shim::IsLpmRunning());
    log_.Clear();
    wake_line_.CloseReader();
  }
  EXPECT_TRUE(WaitFor([&] { return released_.History() == lock_ + lock_; }));
  EXPECT_FALSE(hci::shim::IsLpmRunning());
  EXPECT_EQ(log_.Text({"bthal.hwcontrol"}), R"(
E LpmSuspend: Unable to suspend LPM:Broken pipe (32)
I LpmTeardown: LPM disabling
D LpmTeardown: LPM Disabled
)");
  EXPECT_EQ(recorded.Text(), R"(
LpmWakeUpTimeout
LpmSuspend: Unable to suspend LPM, Broken pipe (32)
LpmTeardown: LPM disabling
wakelock_release
)");
}

TEST_F(BtqnlLpmTest, AnExpiryThatSawATransmissionKeepsTheLineUp) {
  BringUp();
  ASSERT_TRUE(FallsAsleep("110"));
  const sigval timer{.sival_int = 1};  // of the process's first set-up
  const sigval another{.sival_int = 7};
  // Expiries by hand, before the real timer's first one, which comes 800 ms after the line has been raised. A round
  // that took longer than that proves nothing and is played again.
  for (int round = 0; round < 20; ++round) {
    const std::string asleep = wake_line_.History();
    const auto start = std::chrono::steady_clock::now();
    Send(kReset);
    LowPowerLink::Get().LpmWakeUpTimeout(timer);
    Send(kReset);
    LowPowerLink::Get().LpmWakeUpTimeout(timer);
    LowPowerLink::Get().LpmWakeUpTimeout(another);  // of a timer that is no more
    const std::string awake = wake_line_.History();
    const bool conclusive = std::chrono::steady_clock::now() - start < kWakeInterval;
    LowPowerLink::Get().LpmWakeUpTimeout(timer);
    LowPowerLink::Get().LpmWakeUpTimeout(timer);  // late, and the link sleeps already
    const std::string quiet = wake_line_.History();
    if (!conclusive) continue;
    EXPECT_EQ(awake, asleep + "1");
    EXPECT_EQ(quiet, asleep + "10");
    return;
  }
  ADD_FAILURE() << "no round was over within 800 ms";
}

TEST_F(BtqnlLpmTest, TearDownReleasesWhatIsHeldAndALateExpiryFindsNothing) {
  BringUp();
  protocol_.Shutdown();
  EXPECT_EQ(driver_.History(), "10");
  EXPECT_EQ(released_.History(), lock_ + lock_) << "bring-up's by name, and the link's";
  const std::string line = wake_line_.History();
  const sigval timer{.sival_int = 1};
  LowPowerLink::Get().LpmWakeUpTimeout(timer);
  Send(kReset);  // without low-power mode: straight to the wire
  ASSERT_EQ(controller_.NextCommand(), Command(kReset));
  EXPECT_EQ(wake_line_.History(), line);
  EXPECT_EQ(LowPowerLink::Get().lpm_statistics().total_wake_count, 0u);
  EXPECT_EQ(LowPowerLink::Get().lpm_statistics().last_wake_count, 0u);
  EXPECT_EQ(LowPowerLink::Get().lpm_statistics().last_awake_ms, 0);

  // A second set-up starts afresh, asleep or not before.
  BringUp();
  EXPECT_TRUE(FallsAsleep(line + "110"));
}

TEST_F(BtqnlLpmTest, ARefusedSleepModeTearsDownButDoesNotFailBringUp) {
  BringUp(kSleepMode);
  EXPECT_TRUE(log_.Has("lpm_setup: Unable to enable LPM controller:"));
  EXPECT_EQ(driver_.History(), "10");
  EXPECT_FALSE(hci::shim::IsLpmRunning());
}

TEST_F(BtqnlLpmTest, OnlyALongAwakePeriodGoesToTheActivityStatistics) {
  BringUp();
  ASSERT_TRUE(FallsAsleep("110"));
  ASSERT_TRUE(WaitFor([&] { return LowPowerLink::Get().lpm_statistics().total_wake_count == 1; }));
  const std::string nothing_long = BtActivitiesLogger::Get().Report();
  EXPECT_EQ("\n" + nothing_long, R"(
Bluetooth is off, enabled 0 times, packets are not counted
Commands to the controller: 0 packets, 0 bytes
Events from the controller: 0 packets, 0 bytes
ACL data to the controller: 0 packets, 0 bytes
ACL data from the controller: 0 packets, 0 bytes
No long awake period of the link
The controller was not asked for its activity
)") << "no client has come";

  std::string asleep;
  std::string awake;
  do {  // again, should this thread be held up for so long that the link falls asleep in between
    asleep = wake_line_.History();
    const auto start = std::chrono::steady_clock::now();
    do {
      LowPowerLink::Get().LpmWakeUp();
      std::this_thread::sleep_for(milliseconds(1));
    } while (std::chrono::steady_clock::now() - start < milliseconds(3001));
    awake = wake_line_.History();
  } while (awake != asleep + "1");
  EXPECT_EQ(BtActivitiesLogger::Get().Report(), nothing_long);
  ASSERT_TRUE(FallsAsleep(awake + "0"));
  EXPECT_TRUE(WaitFor([&] { return BtActivitiesLogger::Get().Report() != nothing_long; }));
  // As long as none has been before, and then an everyday one.
  BtActivitiesLogger::Get().UpdateBthalWakelockStat("then", 1'000'000, 3);
  BtActivitiesLogger::Get().UpdateBthalWakelockStat("now", 4000, 2);
  EXPECT_THAT(BtActivitiesLogger::Get().Report(),
              HasSubstr("the longest 1000000 ms; the last from now: 4000 ms, 2 wake-ups"));
}

TEST(ThreadTimerTest, ExpiresAsArmedAndCanEndInItsOwnCallback) {
  std::atomic<int> once{0};
  const auto one_shot = os::ThreadTimer::Create("one_shot", [&] { ++once; });
  std::atomic<int> often{0};
  const auto periodic = os::ThreadTimer::Create("periodic", [&] { ++often; });
  ASSERT_TRUE(one_shot->Arm(milliseconds(1), milliseconds(0)));
  ASSERT_TRUE(periodic->Arm(milliseconds(2), milliseconds(2)));
  ASSERT_TRUE(WaitFor([&] { return often > 5; }));
  EXPECT_EQ(once, 1);
  ASSERT_TRUE(periodic->Disarm());

  std::promise<std::unique_ptr<os::ThreadTimer>> itself;
  std::promise<void> gone;
  auto last = os::ThreadTimer::Create("last", [&, timer = itself.get_future().share()] {
    const_cast<std::unique_ptr<os::ThreadTimer>&>(timer.get()).reset();
    gone.set_value();  // a second expiry would set it twice
  });
  ASSERT_TRUE(last->Arm(milliseconds(1), milliseconds(1)));
  itself.set_value(std::move(last));
  gone.get_future().wait();
}

}  // namespace
}  // namespace android::hardware::bluetooth
