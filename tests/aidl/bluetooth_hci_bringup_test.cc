// What the service does after a step of its bring-up has failed and the report of it, which would end the process, has
// been kept from ending it.
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bt_channel_avoidance.h"
#include "os/kill_self.h"
#include "sim/board.h"
#include "support/binder_objects.h"
#include "support/hal_client.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/wait_for.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using ::aidl::android::hardware::bluetooth::Status;
using ::bthal::sim::Board;
using ::bthal::sim::BoardOptions;
using ::bthal::sim::JournalEntry;
using ::bthal::sim::WireEvent;
using ::bthal::test::Bytes;
using ::bthal::test::LogCapture;
using ::bthal::test::RecordingCallbacks;
using ::bthal::test::TempRoot;
using ::bthal::test::WaitFor;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using ::vendor::tovani::bluetooth_ext::bt_channel_avoidance::aidl::implementation::BTChannelAvoidance;

std::atomic<int> g_kills{0};
std::atomic<int> g_aborts{0};

class BringUpFailureTest : public ::testing::Test {
 protected:
  BringUpFailureTest() {
    os::SetKillSelfForTest([] { ++g_kills; });
    ::android::base::SetAborter([](const char*) { ++g_aborts; });
  }
  ~BringUpFailureTest() override {
    hci_.reset();
    os::SetKillSelfForTest(nullptr);
    ::android::base::SetAborter(::android::base::DefaultAborter);
  }

  void Start(bool accelerated, std::vector<std::string> faults, bool with_uart = true) {
    ::android::base::SetProperty("persist.bluetooth.disable.accelerate.bt.on", accelerated ? "false" : "true");
    BoardOptions options;
    options.root = root_.path();
    options.patch_records = 3;
    options.faults = std::move(faults);
    board_.emplace(options);
    std::string error;
    ASSERT_TRUE(board_->Start(&error)) << error;
    if (!with_uart) std::filesystem::remove(root_.path() + "/dev/ttySAC16");
    hci_ = ndk::SharedRefBase::make<BluetoothHci>();
  }

  bool IsOff() const {
    return WaitFor([&] {
      const auto journal = board_->Journal();
      for (auto entry = journal.rbegin(); entry != journal.rend(); ++entry) {
        if (entry->event == WireEvent::kPowerOff) return true;
        if (entry->event == WireEvent::kPowerOn) return false;
      }
      return true;
    });
  }

  LogCapture log_;
  TempRoot root_;
  std::optional<Board> board_;
  std::shared_ptr<RecordingCallbacks> client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  std::shared_ptr<BluetoothHci> hci_;
};

Bytes ErrorEvent(uint8_t kind) { return {0xFF, 4, 0x58, 5, 0, kind}; }

TEST_F(BringUpFailureTest, AClientHearsOfAControllerThatFailsAndOfNothingAfterIt) {
  Start(/*accelerated=*/false, {"wrong-status,opcode=reset,count=always"});
  EXPECT_TRUE(hci_->initialize(client_).isOk());
  EXPECT_THAT(client_->Events(), ElementsAre(ErrorEvent(0x93)));
  EXPECT_THAT(client_->Statuses(), ElementsAre(Status::HARDWARE_INITIALIZATION_ERROR));
  EXPECT_TRUE(log_.Has("Initialize() failed"));
  EXPECT_TRUE(log_.Has("HasClientConnectWith: has_client: 0"));
  EXPECT_EQ(g_aborts, 1);
  EXPECT_EQ(g_kills, 0);
  EXPECT_TRUE(IsOff());
  EXPECT_TRUE(hci_->sendHciCommand({3, 12, 0}).isOk()) << "dropped";
  // Whoever comes next is the first client again.
  EXPECT_TRUE(hci_->initialize(client_).isOk());
  EXPECT_THAT(client_->Statuses(),
              ElementsAre(Status::HARDWARE_INITIALIZATION_ERROR, Status::HARDWARE_INITIALIZATION_ERROR));
}

TEST_F(BringUpFailureTest, AClientHearsOfAChannelThatCannotBeOpened) {
  Start(/*accelerated=*/false, {}, /*with_uart=*/false);
  EXPECT_TRUE(hci_->initialize(client_).isOk());
  EXPECT_THAT(client_->Statuses(), ElementsAre(Status::HARDWARE_INITIALIZATION_ERROR));
  EXPECT_FALSE(log_.Has("DeviceClose")) << "the coexistence device stays open for the next attempt";
  EXPECT_TRUE(IsOff());
}

TEST_F(BringUpFailureTest, WithoutAClientTheProcessIsEnded) {
  Start(/*accelerated=*/true, {"wrong-status,opcode=reset,count=always"});
  EXPECT_TRUE(log_.WaitFor("Calling kill due to an error"));
  EXPECT_TRUE(log_.WaitFor("DeviceClose"));
  EXPECT_EQ(g_kills, 2) << "once by the report, once for want of a client";
  EXPECT_EQ(g_aborts, 0);
}

TEST_F(BringUpFailureTest, WithoutAClientAndWithoutAChannelTheProcessIsEnded) {
  Start(/*accelerated=*/true, {}, /*with_uart=*/false);
  EXPECT_TRUE(log_.WaitFor("InitializeHciHandle failed, calling kill"));
  EXPECT_TRUE(WaitFor([] { return g_kills == 2; }));
}

// The service is this process. Its clients are others, made before it has threads.
class HostedServiceTest : public BringUpFailureTest {
 protected:
  // No bring-up for those who come after the clients.
  ~HostedServiceTest() override { ::android::base::SetProperty("sys.shutdown.requested", "0"); }

  void Serve(bool accelerated) {
    Start(accelerated, {});
    ABinderProcess_setThreadPoolMaxThreadCount(std::size(clients_));
    ABinderProcess_startThreadPool();
    ASSERT_EQ(AServiceManager_addService(hci_->asBinder().get(), bthal::test::HciInstance().c_str()), EX_NONE);
  }

  bthal::test::ClientProcess clients_[3];
};

TEST_F(HostedServiceTest, OfClientsThatWaitForTheSameBringUpOneIsServed) {
  log_.HoldAt("thread_perform_init");
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/true));
  std::vector<std::future<int>> calls;
  for (auto& client : clients_) calls.push_back(std::async(std::launch::async, [&] { return client.Initialize(); }));
  ASSERT_TRUE(WaitFor([&] { return log_.Count("initialize_impl") == calls.size(); }));
  log_.LetGo();
  std::vector<Status> statuses;
  for (auto& call : calls) statuses.push_back(static_cast<Status>(call.get()));
  EXPECT_THAT(statuses,
              UnorderedElementsAre(Status::SUCCESS, Status::ALREADY_INITIALIZED, Status::ALREADY_INITIALIZED));
  EXPECT_TRUE(WaitFor([] { return g_kills == 1; }));
}

TEST_F(HostedServiceTest, ACloseLeavesNoExtensionBehindThatWasJustStarting) {
  const auto avoidance = ndk::SharedRefBase::make<BTChannelAvoidance>();
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/false));
  log_.HoldAt("Enable Bluetooth HAL Extensions");
  ASSERT_EQ(clients_[0].Initialize(), static_cast<int>(Status::SUCCESS));
  auto closed = std::async(std::launch::async, [this] { return clients_[0].Close(); });
  ASSERT_TRUE(log_.WaitFor("BluetoothHci::close()"));
  EXPECT_FALSE(
      WaitFor([this] { return log_.Has("Disable Bluetooth HAL Extensions"); }, std::chrono::milliseconds(100)));
  log_.LetGo();
  EXPECT_TRUE(closed.get());
  EXPECT_EQ(avoidance->setBluetoothChannelStatus({}).getServiceSpecificError(), -22);
}

}  // namespace
}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
