// The low-power link of the real service, judged by the order of events at the board.
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "sim/board.h"
#include "support/hal_client.h"
#include "support/service_harness.h"
#include "support/temp_root.h"
#include "support/wait_for.h"

namespace bthal::test {
namespace {

using ::aidl::android::hardware::bluetooth::IBluetoothHci;
using sim::JournalEntry;
using sim::WireEvent;
using HalStatus = ::aidl::android::hardware::bluetooth::Status;

const Bytes kReadAddress = {0x09, 0x10, 0};
constexpr size_t kSleeps = 3;

class WakeLineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::BoardOptions options;
    options.root = root_.path();
    options.patch_records = 3;
    board_ = std::make_unique<sim::Board>(options);
    std::string error;
    ASSERT_TRUE(board_->Start(&error)) << error;
    service_ = std::make_unique<ServiceProcess>(SERVICE_PROGRAM, root_.path());
    ASSERT_TRUE(service_->WaitUntilPublished());
    ABinderProcess_startThreadPool();
    hal_ = FindService<IBluetoothHci>();
    ASSERT_TRUE(hal_->initialize(client_).isOk());
    ASSERT_TRUE(client_->WaitForStatus(HalStatus::SUCCESS));
  }

  size_t Count(WireEvent event, uint64_t value) const {
    const auto journal = board_->Journal();
    return static_cast<size_t>(std::count_if(journal.begin(), journal.end(), [&](const JournalEntry& entry) {
      return entry.event == event && entry.value == value;
    }));
  }

  void Exchange() {
    const size_t before = client_->Events().size();
    ASSERT_TRUE(hal_->sendHciCommand(kReadAddress).isOk());
    ASSERT_TRUE(WaitFor([&] { return client_->Events().size() == before + 1; }));
  }

  TempRoot root_;
  std::unique_ptr<sim::Board> board_;
  std::unique_ptr<ServiceProcess> service_;
  std::shared_ptr<RecordingCallbacks> client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  std::shared_ptr<IBluetoothHci> hal_;
};

TEST_F(WakeLineTest, TheLineIsUpBeforeEveryByteAndTheLockIsHeldExactlyWhileItIs) {
  for (size_t sleep = 1; sleep <= kSleeps; ++sleep) {
    for (int i = 0; i < 5; ++i) Exchange();
    ASSERT_TRUE(WaitFor([&] { return Count(WireEvent::kWakeLine, 0) >= sleep; }));
  }
  Exchange();

  bool up = false;
  bool slept = false;
  bool locked = false;
  for (const JournalEntry& entry : board_->Journal()) {
    if (entry.event == WireEvent::kLostBytes || entry.event == WireEvent::kProtocolError) ADD_FAILURE() << entry.text;
    if (entry.event == WireEvent::kWakeLock) locked = true;
    if (entry.event == WireEvent::kWakeUnlock) {
      EXPECT_TRUE(!slept || !up) << "released while the line was up";
      locked = false;
    }
    if (entry.event == WireEvent::kWakeLine) {
      up = entry.value == 1;
      EXPECT_TRUE(!slept || !up || locked) << "raised without the lock";
      slept = slept || !up;
    }
    EXPECT_TRUE(entry.event != WireEvent::kReceived || !slept || (up && locked)) << "a byte came to a sleeping link";
  }
}

}  // namespace
}  // namespace bthal::test
