#include "os/fair_mutex.h"

#include "support/test.h"

namespace bthal::test {
namespace {

using android::hardware::bluetooth::os::FairMutex;

TEST(FairMutexTest, WhoWaitsComesBeforeWhoReleasesItAndWantsItAgain) {
  constexpr int kRounds = 100;
  FairMutex mutex;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<char> order;
    std::atomic<pid_t> waiter{0};
    mutex.lock();
    std::thread other([&] {
      waiter = gettid();
      const std::lock_guard lock(mutex);
      order.push_back('w');
    });
    ASSERT_TRUE(WaitFor([&] { return waiter != 0 && StateOf(waiter) == 'S'; }));
    mutex.unlock();
    mutex.lock();
    order.push_back('r');
    mutex.unlock();
    other.join();
    ASSERT_THAT(order, ElementsAre('w', 'r')) << "round " << round;
  }
}

}  // namespace
}  // namespace bthal::test
