// What the service does after a step of its bring-up has failed and the report of it, which would end the process, has
// been kept from ending it.
#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_hci/termination.h"
#include "bluetooth_bqr.h"
#include "conf/conf.h"
#include "host/binder_objects.h"
#include "os/kill_self.h"
#include "shim/shim.h"
#include "support/board_session.h"
#include "support/diagnostics.h"
#include "support/test.h"

#include <regex>

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using namespace ::bthal::test;

using ::testing::UnorderedElementsAre;

std::atomic<int> g_kills{0};
std::atomic<int> g_aborts{0};

class BringUpFailureTest : public BoardSessionTest {
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
    Accelerate(accelerated);
    ASSERT_NO_FATAL_FAILURE(StartBoard(SmallBoard(std::move(faults))));
    if (!with_uart) std::filesystem::remove(root_.path() + "/dev/ttySAC16");
    hci_ = ndk::SharedRefBase::make<BluetoothHci>();
  }

  static inline const std::set<std::string> kTags = {"bthal.aidl.qnlbtlinux", "bthal.activity_watcher"};

  LogCapture log_;
  std::shared_ptr<BluetoothHci> hci_;
};

bool HasThread(const std::string& name) {
  return std::ranges::any_of(std::filesystem::directory_iterator("/proc/self/task"),
                             [&](const auto& task) { return ContentOf(task.path() / "comm") == name + "\n"; });
}

Bytes ErrorEvent(uint8_t kind) { return {0xFF, 4, 0x58, 5, 0, kind}; }

TEST_F(BringUpFailureTest, AClientHearsOfAControllerThatFailsAndOfNothingAfterIt) {
  Start(/*accelerated=*/false, {"wrong-status,opcode=reset,count=always"});
  log_.Clear();
  EXPECT_TRUE(hci_->initialize(client_).isOk());
  EXPECT_EQ(log_.Text(kTags), R"(
I initialize_impl
I perform_init
I open_coex_dev: return ret (1), count:0
E Initialize() failed
)");
  EXPECT_THAT(client_->Events(), ElementsAre(ErrorEvent(0x93)));
  EXPECT_THAT(client_->Statuses(), ElementsAre(HalStatus::HARDWARE_INITIALIZATION_ERROR));
  EXPECT_EQ(g_aborts, 1);
  EXPECT_EQ(g_kills, 0);
  EXPECT_TRUE(GoesOff(*board_));
  EXPECT_TRUE(hci_->sendHciCommand({3, 12, 0}).isOk()) << "dropped";
  // Whoever comes next is the first client again.
  log_.Clear();
  const Recorded recorded;
  client_->Fail(true);
  EXPECT_TRUE(hci_->initialize(client_).isOk());
  EXPECT_EQ(log_.Text(kTags), R"(
I initialize_impl
I perform_init
I open_coex_dev: return ret (1), count:0
W Unable to callback bqr root inflamed event to Stack
E Initialize() failed
E VendorInterface -> Unable to call initializationComplete(ERR)
)");
  EXPECT_THAT(recorded.Text(), HasSubstr("\nperform_init: Unable to call initializationComplete(ERR)\n"));
  EXPECT_THAT(client_->Statuses(),
              ElementsAre(HalStatus::HARDWARE_INITIALIZATION_ERROR, HalStatus::HARDWARE_INITIALIZATION_ERROR));
}

TEST_F(BringUpFailureTest, AClientHearsOfAChannelThatCannotBeOpened) {
  Start(/*accelerated=*/false, {}, /*with_uart=*/false);
  log_.Clear();
  client_->Fail(true);
  EXPECT_TRUE(hci_->initialize(client_).isOk());
  EXPECT_EQ(log_.Text(kTags), R"(
I initialize_impl
I perform_init
I open_coex_dev: return ret (1), count:0
W Unable to callback bqr root inflamed event to Stack
E VendorInterface -> Unable to call initializationComplete(ERR)
)");
  EXPECT_THAT(client_->Statuses(), ElementsAre(HalStatus::HARDWARE_INITIALIZATION_ERROR));
  EXPECT_FALSE(log_.Has("DeviceClose")) << "the coexistence device stays open for the next attempt";
  EXPECT_TRUE(GoesOff(*board_));
}

TEST_F(BringUpFailureTest, WithoutAClientTheProcessIsEnded) {
  Start(/*accelerated=*/true, {"wrong-status,opcode=reset,count=always"});
  EXPECT_TRUE(log_.WaitFor("DeviceClose"));
  EXPECT_EQ(log_.Text(kTags), R"(
I BluetoothHci
I initialize: controller activity goes to the dump only, there is no power-statistics service to tell
I BluetoothHci: [bthal.thread_dispatcher] Thread Dispatcher enabled: 0
I thread_perform_init
I perform_init
I open_coex_dev: return ret (1), count:0
W notify_cb: g_cb == nullptr
E Initialize() failed
E Calling kill due to an error
)");
  EXPECT_EQ(g_kills, 2) << "once by the report, once for want of a client";
  EXPECT_EQ(g_aborts, 0);
}

TEST_F(BringUpFailureTest, WithoutAClientAndWithoutAChannelTheProcessIsEnded) {
  Start(/*accelerated=*/true, {}, /*with_uart=*/false);
  EXPECT_TRUE(log_.WaitFor("InitializeHciHandle failed, calling kill"));
  EXPECT_TRUE(WaitFor([] { return g_kills == 2; }));
}

// The controller was brought up with the service, and has lost its port since.
TEST_F(BringUpFailureTest, AClientHearsThatAChannelIsNotOpenedTwice) {
  Start(/*accelerated=*/true, {});
  ASSERT_TRUE(log_.WaitFor("BTQNL controller is ready"));
  hci::shim::DeinitializeController();
  log_.Clear();
  client_->Fail(true);
  EXPECT_TRUE(hci_->initialize(client_).isOk());
  EXPECT_EQ(log_.Text(kTags), R"(
I initialize_impl
I Init thread is running. Waiting for it to exit
I Init thread exited. Continue further processing
I perform_init
E perform_init: hci_handle != nullptr! -> Double attempt to initialize the HAL
E VendorInterface -> Unable to call initializationComplete(ERR)
)");
  EXPECT_THAT(client_->Statuses(), ElementsAre(HalStatus::HARDWARE_INITIALIZATION_ERROR));
  EXPECT_EQ(g_aborts + g_kills, 0);
}

TEST_F(BringUpFailureTest, ABigHammerClosesAndLeavesItsRecord) {
  conf::Config::GetInstance().bqr_energy_report_logging = true;
  Start(/*accelerated=*/true, {});
  ASSERT_TRUE(log_.WaitFor("BTQNL controller is ready"));
  ASSERT_TRUE(WaitFor([] { return !HasThread("bt_init"); })) << "which has the turn";
  log_.Clear();
  const Recorded recorded;
  board_->SendCoexEvent({1, 0, 1, 0x42});
  EXPECT_TRUE(WaitFor([] { return g_kills == 1; }));
  EXPECT_EQ(log_.Text(kTags), R"(
E resetBtCallback called
I closeHci
I closeHci: hci_handle_ = nullptr
W notify_cb: g_cb == nullptr
)");
  EXPECT_THAT(recorded.Text(), StartsWith("\nresetBtCallback Big Hammer Occurred\n"));
  EXPECT_TRUE(GoesOff(*board_));
  const std::string energy_log = root_.Read(kBqrEnergyLogPath);
  EXPECT_THAT(energy_log, StartsWith("20"));
  BtBqrEnergyRecoder::Get().OnEnergyReport({0xFF, 4, 0x58, 6, 1, 2});
  EXPECT_EQ(root_.Read(kBqrEnergyLogPath), energy_log) << "closed with the controller";
}

// The service is this process. Its clients are others, made before it has threads; they reach it through a door that
// the test holds.
class HostedServiceTest : public BringUpFailureTest {
 protected:
  HostedServiceTest() {
    door_->on_initialize = [this](const auto& client) { return Hci()->initialize(client); };
  }
  // No bring-up for those who come after the clients.
  ~HostedServiceTest() override { SetProperty("sys.shutdown.requested", "0"); }

  void Serve(bool accelerated, std::vector<std::string> faults = {}) {
    ASSERT_NO_FATAL_FAILURE(Start(accelerated, std::move(faults)));
    ABinderProcess_setThreadPoolMaxThreadCount(std::size(clients_));
    ABinderProcess_startThreadPool();
    ASSERT_EQ(Publish(door_), EX_NONE);
  }
  static HalStatus Initialize(ClientProcess& client) { return static_cast<HalStatus>(client.Initialize()); }

  BluetoothHci* Hci() {
    const std::lock_guard lock(hci_mutex_);
    return hci_.get();
  }
  // While the door is open.
  void Replace(std::shared_ptr<BluetoothHci> hci) {
    const std::lock_guard lock(hci_mutex_);
    hci_ = std::move(hci);
  }

  ClientProcess clients_[3];
  std::mutex hci_mutex_;
  const std::shared_ptr<FakeHci> door_ = ndk::SharedRefBase::make<FakeHci>();
};

TEST_F(HostedServiceTest, ASessionIsLoggedStepByStep) {
  const auto session = [&](const char* up) {
    EXPECT_TRUE(log_.WaitFor(up));
    EXPECT_EQ(Initialize(clients_[0]), HalStatus::SUCCESS);
    EXPECT_TRUE(log_.WaitFor("Enable Bluetooth HAL Extensions"));
    EXPECT_TRUE(hci_->close().isOk());
    // The extensions start beside the client.
    return std::regex_replace(log_.Text(kTags), std::regex("I startVarneHalExtensions[^\\n]*\\n"), "");
  };
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/true));
  EXPECT_EQ(session("BTQNL controller is ready"), R"(
I BluetoothHci
I initialize: controller activity goes to the dump only, there is no power-statistics service to tell
I BluetoothHci: [bthal.thread_dispatcher] Thread Dispatcher enabled: 0
I thread_perform_init
I perform_init
I open_coex_dev: return ret (1), count:0
I setup_signal_handler:
I setup_signal_handler: sigaction(SIGTERM)
I perform_init: BTQNL controller is ready
I initialize_impl
I Init thread is running. Waiting for it to exit
I Init thread exited. Continue further processing
I BluetoothHci::initialize() completed
I BluetoothHci::close()
I stopVarneHalExtensions: Disable Bluetooth HAL Extensions
I BluetoothHci::close() Done
)");
  Replace(nullptr);
  log_.Clear();
  Accelerate(false);
  Replace(ndk::SharedRefBase::make<BluetoothHci>());
  EXPECT_EQ(session("Thread Dispatcher enabled"), R"(
I BluetoothHci
I initialize: controller activity goes to the dump only, there is no power-statistics service to tell
I BluetoothHci: [bthal.thread_dispatcher] Thread Dispatcher enabled: 0
I initialize_impl
I perform_init
I open_coex_dev: return ret (1), count:0
I setup_signal_handler:
I setup_signal_handler: sigaction(SIGTERM)
I perform_init: BTQNL controller is ready
I BluetoothHci::initialize() completed
I BluetoothHci::close()
I stopVarneHalExtensions: Disable Bluetooth HAL Extensions
I perform_close
I closeHci
I closeHci: hci_handle_ = nullptr
I BluetoothHci::close() Done
)");

  // Whoever is nobody, and what is no command.
  log_.Clear();
  EXPECT_EQ(hci_->initialize(nullptr).getServiceSpecificError(), -22);
  EXPECT_TRUE(hci_->sendHciCommand({3, 12}).isOk()) << "nothing but an opcode";
  for (const Bytes& command : {Bytes{}, Bytes{3}}) {
    const auto status = hci_->sendHciCommand(command);
    EXPECT_EQ(status.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_STREQ(status.getMessage(), "Wrong Command Size!");
  }
  EXPECT_EQ(log_.Text(kTags), R"(
I initialize_impl
E cb == nullptr! -> Unable to call initializationComplete(ERR)
E sendHciCommand: Wrong Command Size
)");
}

TEST_F(HostedServiceTest, OfClientsThatWaitForTheSameBringUpOneIsServed) {
  ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/true, {"late-answer,opcode=reset,ms=500"}));
  std::vector<std::future<HalStatus>> calls;
  for (ClientProcess& client : clients_) {
    calls.push_back(std::async(std::launch::async, [&] { return Initialize(client); }));
  }
  std::vector<HalStatus> statuses;
  for (auto& call : calls) statuses.push_back(call.get());
  EXPECT_THAT(statuses,
              UnorderedElementsAre(HalStatus::SUCCESS, HalStatus::ALREADY_INITIALIZED, HalStatus::ALREADY_INITIALIZED));
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
    ASSERT_EQ(Initialize(clients_[0]), HalStatus::SUCCESS);
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
  ndk::ScopedAStatus Initialize(BluetoothHci& hci, const std::shared_ptr<Callbacks>& client) {
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

class LateDeathTest : public HostedServiceTest {
 protected:
  // A session whose client has died, of which the service has not heard.
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(Serve(/*accelerated=*/false));
    door_->on_initialize = [&](const auto& client) { return death_.Initialize(*hci_, client); };
    ASSERT_EQ(Initialize(clients_[0]), HalStatus::SUCCESS);
    clients_[0].Kill();
    death_.Wait();
  }

  LateDeath death_;
};

TEST_F(LateDeathTest, FindsItsSessionClosed) {
  EXPECT_TRUE(hci_->close().isOk());  // the last thing that the client had asked for
  death_.Announce();
  death_.WaitUntilTold();
  EXPECT_EQ(log_.Count("BluetoothHci::close() Done"), 1u);
  EXPECT_EQ(g_aborts, 0);
}

TEST_F(LateDeathTest, LeavesTheSuccessorAlone) {
  ASSERT_NO_FATAL_FAILURE(AddFault("no-answer,opcode=reset"));  // a bring-up of two seconds
  door_->on_initialize = [this](const auto& client) { return hci_->initialize(client); };
  auto successor = std::async(std::launch::async, [this] { return Initialize(clients_[1]); });
  EXPECT_TRUE(WaitFor([this] { return log_.Count("HasClientConnectWith: has_client: 1") == 2; }));
  death_.Announce();
  EXPECT_EQ(successor.get(), HalStatus::SUCCESS);
  death_.WaitUntilTold();
  EXPECT_FALSE(log_.Has("BluetoothHci::close()"));
}

TEST_F(BringUpFailureTest, ATerminationThatTakesTooLongIsCutShort) {
  const TerminationDeadline deadline(kTerminationLimit);
  EXPECT_TRUE(WaitFor([] { return g_kills == 1; }));
  EXPECT_EQ(log_.Text(), "\nE TerminationDeadline: not done after 2500 ms, killing the process\n");
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
