#include "os/log_throttle.h"

#include "support/test.h"

namespace android::hardware::bluetooth::os {
namespace {

using namespace ::bthal::test;

TEST(LogThrottleTest, TheFirstIsLoggedAndThenOneASecondWithTheCountOfTheRest) {
  LogThrottle throttle;
  const auto start = LogThrottle::Clock::now();
  EXPECT_EQ(throttle.Notice(start), std::optional<uint64_t>(0));
  for (const int ms : {0, 1, 500, 999}) EXPECT_EQ(throttle.Notice(start + milliseconds(ms)), std::nullopt) << ms;
  EXPECT_EQ(throttle.Notice(start + milliseconds(1000)), std::optional<uint64_t>(4));
  EXPECT_EQ(throttle.Notice(start + milliseconds(1999)), std::nullopt) << "a second from the last line";
  EXPECT_EQ(throttle.Notice(start + milliseconds(9000)), std::optional<uint64_t>(1));
  EXPECT_EQ(throttle.Notice(start + milliseconds(99000)), std::optional<uint64_t>(0));
  throttle.Reset();
  EXPECT_EQ(throttle.Notice(start + milliseconds(99000)), std::optional<uint64_t>(0));
}

// Four threads flood the log until three lines have come through: each occurrence is logged or counted, once, and what
// is logged is logged letter for letter.
TEST(LogThrottleTest, AFloodFromManyThreadsIsCountedWhole) {
  const LogCapture log;
  LogThrottle throttle;
  std::atomic<bool> over{false};
  std::atomic<uint64_t> occurred{0};
  const auto start = LogThrottle::Clock::now();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (; !over; ++occurred) throttle.Log("tag", ::android::base::WARNING, "a flood");
    });
  }
  const auto logged = [&] {
    return static_cast<uint64_t>(std::ranges::count_if(
        log.Lines(), [](const auto& line) { return line.text == "a flood" && line.tag == "tag"; }));
  };
  EXPECT_TRUE(WaitFor([&] { return logged() >= 3; }));
  over = true;
  for (std::thread& thread : threads) thread.join();
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(LogThrottle::Clock::now() - start).count();
  EXPECT_LE(logged(), static_cast<uint64_t>(seconds));

  uint64_t told = logged() + *throttle.Notice(LogThrottle::Clock::now() + std::chrono::hours(1));
  for (const auto& line : log.Lines()) {
    unsigned long left_out = 0;
    if (sscanf(line.text.c_str(), "left out %lu times: a flood", &left_out) == 1) told += left_out;
  }
  EXPECT_EQ(told, occurred);
}

}  // namespace
}  // namespace android::hardware::bluetooth::os
