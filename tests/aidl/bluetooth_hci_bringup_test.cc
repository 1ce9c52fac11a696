// What the service does after a step of its bring-up has failed and the report of it, which would end the process, has
// been kept from ending it.
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_hci/termination.h"
#include "host/binder_objects.h"
#include "os/kill_self.h"
#include "sim/board.h"
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
using ::bthal::test::ClientProcess;
using ::bthal::test::FakeHci;
using ::bthal::test::LogCapture;
using ::bthal::test::RecordingCallbacks;
using ::bthal::test::TempRoot;
using ::bthal::test::WaitFor;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

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

// The service is this process. Its clients are others, made before it has threads; they reach it through a door that
// the test holds.
class HostedServiceTest : public BringUpFailureTest {
 protected:
  HostedServiceTest() {
    door_->on_initialize = [this](const auto& client) { return hci_->initialize(client); };
  }
  // No bring-up for those who come after the clients.
  ~HostedServiceTest() override { ::android::base::SetProperty("sys.shutdown.requested", "0"); }

  void Serve(bool accelerated, std::vector<std::string> faults = {}) {
    ASSERT_NO_FATAL_FAILURE(Start(accelerated, std::move(faults)));
    ABinderProcess_setThreadPoolMaxThreadCount(std::size(clients_));
    ABinderProcess_startThreadPool();
    ASSERT_EQ(Publish(door_), EX_NONE);
  }
  static Status Initialize(ClientProcess& client) { return static_cast<Status>(client.Initialize()); }

  ClientProcess clients_[3];
  const std::shared_ptr<FakeHci> door_ = ndk::SharedRefBase::make<FakeHci>();
};

TEST_F(HostedServiceTest, OfClientsThatWaitForTheSameBringUpOneIsServed) {
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/true, {"late-answer,opcode=reset,ms=500"}));
  std::vector<std::future<Status>> calls;
  for (ClientProcess& client : clients_) {
    calls.push_back(std::async(std::launch::async, [&] { return Initialize(client); }));
  }
  std::vector<Status> statuses;
  for (auto& call : calls) statuses.push_back(call.get());
  EXPECT_THAT(statuses,
              UnorderedElementsAre(Status::SUCCESS, Status::ALREADY_INITIALIZED, Status::ALREADY_INITIALIZED));
  EXPECT_TRUE(WaitFor([] { return g_kills == 1; }));
}

TEST_F(HostedServiceTest, ExtensionsDoNotStartBehindTheClose) {
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/true));
  door_->on_initialize = [this](const auto& client) {
    auto initialized = hci_->initialize(client);
    hci_->close();
    return initialized;
  };
  std::string expected;
  for (int round = 0; round < 10; ++round) {
    ASSERT_EQ(Initialize(clients_[0]), Status::SUCCESS);
    expected += "ED";
  }
  std::string switched;
  for (const auto& line : log_.Lines()) {
    if (line.text.ends_with("able Bluetooth HAL Extensions"))
      switched += line.text.ends_with("Enable Bluetooth HAL Extensions") ? 'E' : 'D';
  }
  EXPECT_EQ(switched, expected);
}

// A death of which the service hears late: the notices come in the order in which they were asked for, and the first
// one here holds up the service's.
class LateDeath {
 public:
  // Through this, the client to be initialises.
  ndk::ScopedAStatus Initialize(BluetoothHci& hci, const std::shared_ptr<bthal::test::Callbacks>& client) {
    AIBinder_linkToDeath(client->asBinder().get(), recipient_.get(), &first_);
    auto initialized = hci.initialize(client);
    AIBinder_linkToDeath(client->asBinder().get(), recipient_.get(), &last_);
    return initialized;
  }
  void Wait() { died_.get_future().wait(); }
  void Announce() { late_.set_value(); }
  void WaitUntilTold() { told_.get_future().wait(); }

 private:
  std::promise<void> died_, late_, told_;
  std::function<void()> first_ = [this] { died_.set_value(), late_.get_future().wait(); };
  std::function<void()> last_ = [this] { told_.set_value(); };
  const ndk::ScopedAIBinder_DeathRecipient recipient_{
      AIBinder_DeathRecipient_new([](void* cookie) { (*static_cast<std::function<void()>*>(cookie))(); })};
};

TEST_F(HostedServiceTest, ALateNoticeOfADeathFindsItsSessionClosed) {
  LateDeath death;
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/false));
  door_->on_initialize = [&](const auto& client) { return death.Initialize(*hci_, client); };
  ASSERT_EQ(Initialize(clients_[0]), Status::SUCCESS);
  clients_[0].Kill();
  death.Wait();
  EXPECT_TRUE(hci_->close().isOk());  // the last thing that the client had asked for
  death.Announce();
  death.WaitUntilTold();
  EXPECT_EQ(log_.Count("BluetoothHci::close() Done"), 1u);
  EXPECT_EQ(g_aborts, 0);
}

TEST_F(HostedServiceTest, ALateNoticeOfADeathLeavesTheSuccessorAlone) {
  LateDeath death;
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/false));
  door_->on_initialize = [&](const auto& client) { return death.Initialize(*hci_, client); };
  ASSERT_EQ(Initialize(clients_[0]), Status::SUCCESS);
  clients_[0].Kill();
  death.Wait();

  std::string error;
  ASSERT_TRUE(board_->AddFault("no-answer,opcode=reset", &error)) << error;  // a bring-up of two seconds
  door_->on_initialize = [this](const auto& client) { return hci_->initialize(client); };
  auto successor = std::async(std::launch::async, [this] { return Initialize(clients_[1]); });
  EXPECT_TRUE(WaitFor([this] { return log_.Count("HasClientConnectWith: has_client: 1") == 2; }));
  death.Announce();
  EXPECT_EQ(successor.get(), Status::SUCCESS);
  death.WaitUntilTold();
  EXPECT_FALSE(log_.Has("BluetoothHci::close()"));
}

TEST(TerminationTest, ForgettingTheStepsWaitsForThoseThatRun) {
  std::promise<void> running, end;
  std::atomic<bool> over{false};
  HandleSigterm([&](int) { running.set_value(), end.get_future().wait(), over = true; });
  raise(SIGTERM);
  running.get_future().wait();
  auto forgotten = std::async(std::launch::async, [&] { return ForgetSigterm(), over.load(); });
  forgotten.wait_for(std::chrono::milliseconds(20));  // whoever does not wait has returned by then
  end.set_value();
  EXPECT_TRUE(forgotten.get());
}

}  // namespace
}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
