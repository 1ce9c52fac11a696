// Thread frames by the ten thousand, beside HCI traffic, through the real service.
#include <condition_variable>

#include "support/board_session.h"
#include "support/test.h"
#include "support/thread_client.h"

namespace bthal::test {
namespace {

#ifdef BTHAL_SANITIZED
constexpr uint32_t kFrames = 2'000;
#else
constexpr uint32_t kFrames = 100'000;
#endif
constexpr uint16_t kSmallest = 1;
constexpr uint16_t kLargest = ThreadClient::kLargestFrame;
// Frames under way at a time: what the client's socket holds even if all of them are of the largest size.
constexpr uint32_t kWindow = 16;

const Bytes kReadAddress = {0x09, 0x10, 0};

class ThreadTrafficTest : public BoardSessionTest {
 protected:
  void SetUp() override {
    sim::BoardOptions options = SmallBoard();
    options.journal_data_bytes = 1024 * 1024;
    ASSERT_NO_FATAL_FAILURE(StartBoard(options));
    root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf", "ThreadDispatcherEnabled = true\n");
    SetProperty("persist.bluetooth.thread_dispatcher.enabled", "true");
    ASSERT_NO_FATAL_FAILURE(OpenSession("info"));
    thread_client_ = std::make_unique<ThreadClient>(root_.path());
    ASSERT_TRUE(thread_client_->connected());
    ASSERT_TRUE(service_->WaitForLog("Accepted new client successfully."));
  }

  std::unique_ptr<ThreadClient> thread_client_;
};

TEST_F(ThreadTrafficTest, EveryFrameComesBackInOrderBesideHciTraffic) {
  std::mutex mutex;
  std::condition_variable changed;
  uint32_t back = 0;
  uint32_t wrong = 0;
  bool ended = false;
  std::thread receiver([&] {
    for (uint32_t number = 0; number < kFrames; ++number) {
      const Bytes frame = thread_client_->Receive();
      const std::lock_guard lock(mutex);
      if (frame != Board::ThreadPayload(number, kSmallest, kLargest)) ++wrong;
      ended = frame.empty();
      back = number + 1;
      changed.notify_one();
      if (ended) return;
    }
  });
  std::atomic<bool> done{false};
  std::atomic<uint32_t> commands{0};
  std::thread commander([&] {
    while (!done && Exchange(kReadAddress)) ++commands;
  });

  for (uint32_t number = 0; number < kFrames; ++number) {
    std::unique_lock lock(mutex);
    const bool moves =
        changed.wait_for(lock, std::chrono::seconds(60), [&] { return ended || number - back < kWindow; });
    if (!moves || ended) break;
    lock.unlock();
    if (!thread_client_->Send(Board::ThreadPayload(number, kSmallest, kLargest))) break;
  }
  {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(60), [&] { return ended || back == kFrames; });
  }
  thread_client_->HangUp();
  receiver.join();
  done = true;
  commander.join();
  EXPECT_EQ(back, kFrames);
  EXPECT_EQ(wrong, 0U);
  EXPECT_FALSE(ended);
  EXPECT_GT(commands, 0U);
  EXPECT_EQ(service_->CountInLog("send buffer is full, dir: 0"), 0U);
}

}  // namespace
}  // namespace bthal::test
