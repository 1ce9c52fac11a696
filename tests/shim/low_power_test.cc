#include "shim/low_power.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "support/fifo_node.h"
#include "support/temp_root.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

using ::bthal::test::FifoNode;
using ::bthal::test::WaitFor;

// The sender has seen the low-power mode run, and has the lock only when it no longer does.
TEST(LowPowerLinkTest, ASenderInTheMiddleOfATearDownLeavesNoWakeLockBehind) {
  constexpr int kRounds = 100;
  const ::bthal::test::TempRoot root;
  FifoNode driver(root, "/proc/bluetooth/sleep/lpm");
  FifoNode wake_line(root, "/proc/bluetooth/sleep/btwrite");
  FifoNode acquired(root, "/sys/power/wake_lock");
  FifoNode released(root, "/sys/power/wake_unlock");
  LowPowerLink& link = LowPowerLink::Get();
  std::atomic<uint64_t> sent = 0;
  const std::jthread sender([&](const std::stop_token& over) {
    for (; !over.stop_requested(); ++sent) link.LpmWakeUp();
  });
  const auto pass_twice = [&] {
    const uint64_t before = sent;
    while (sent < before + 2) std::this_thread::yield();
  };
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_TRUE(link.lpm_setup());
    pass_twice();  // it is awake now, and being sent on
    link.lpm_teardown();
    pass_twice();
    driver.History();
    wake_line.History();
    ASSERT_EQ(std::ranges::count(acquired.History(), '\n'), std::ranges::count(released.History(), '\n')) << round;
  }
}

// Whoever asks what the service does when it stands still wants to know just then.
TEST(LowPowerLinkTest, TheStatisticsWaitForNoWakeLine) {
  const ::bthal::test::TempRoot root;
  const FifoNode driver(root, "/proc/bluetooth/sleep/lpm");
  FifoNode wake_line(root, "/proc/bluetooth/sleep/btwrite");
  FifoNode acquired(root, "/sys/power/wake_lock");
  const FifoNode released(root, "/sys/power/wake_unlock");
  LowPowerLink& link = LowPowerLink::Get();
  ASSERT_TRUE(link.lpm_setup());
  wake_line.FillUp();
  const std::jthread sender([&] { link.LpmWakeUp(); });
  ASSERT_TRUE(WaitFor([&] { return !acquired.History().empty(); }));
  // The sender is in its write now, or has only that before it.
  auto statistics = std::async(std::launch::async, [&] { return link.lpm_statistics(); });
  EXPECT_EQ(statistics.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  wake_line.Take();  // lets it go
  link.lpm_teardown();
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci::shim
