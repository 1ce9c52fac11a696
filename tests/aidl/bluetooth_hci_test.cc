#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>

#include "support/board_host.h"
#include "support/board_session.h"
#include "support/test.h"

namespace bthal::test {
namespace {

namespace ext = ::aidl::vendor::tovani::bluetooth_ext;

const Bytes kReset = {0x03, 0x0C, 0};
const Bytes kReadVersion = {0x01, 0x10, 0};
const Bytes kReadAddress = {0x09, 0x10, 0};
const Bytes kReadDebugInformation = {0x5B, 0xFD, 0};

// The event with which the stack hears of a fatal error of this kind.
Bytes ErrorEvent(uint8_t kind) { return {0xFF, 4, 0x58, 5, 0, kind}; }

constexpr int kSuccess = static_cast<int>(HalStatus::SUCCESS);

// The service as a process, the board as its controller, and a client in the test's own process.
class BluetoothHciTest : public BoardSessionTest {
 protected:
  void Start(std::vector<std::string> faults = {}) {
    StartBoard(SmallBoard(std::move(faults)));
    Serve();
  }
  // With a session.
  void Open() {
    Start();
    ASSERT_EQ(Initialize(), kSuccess);
  }
  void Serve() {
    StartService();
    ASSERT_NO_FATAL_FAILURE(FindHal());
  }

  // As a stack does: its status is what initializationComplete said, -1 when it said nothing.
  int Initialize() {
    if (!hal_->initialize(client_).isOk() || client_->Statuses().empty()) return -1;
    return static_cast<int>(client_->Statuses().back());
  }

  // Whether a command goes out and its completion comes back.
  bool Answers(const Bytes& command) {
    const auto answers = [&] {
      return std::ranges::count_if(client_->Events(), [&](const Bytes& event) {
        return event.size() > 5 && event[0] == 0x0E && event[3] == command[0] && event[4] == command[1];
      });
    };
    const auto before = answers();
    return hal_->sendHciCommand(command).isOk() && WaitFor([&] { return answers() == before + 1; });
  }
};

TEST_F(BluetoothHciTest, AnExtensionThatCannotBePublishedLeavesTheHalUsable) {
  const std::string names[] = {"BluetoothCcc",    "BluetoothExt", "BluetoothEwp",
                               "BluetoothFinder", "BluetoothSar", "BTChannelAvoidance"};
  for (const std::string& name : names) {
    root_.Write("/run/bthal/services/vendor.tovani.bluetooth_ext.I" + name + "/default/x", "");
  }
  Start();
  for (const std::string& name : names) {
    const std::string shown = name == "BluetoothExt" ? "BluetoothHciInject" : name;
    EXPECT_EQ(service_->CountInLog("Could not register " + shown + " as a service!"), 1U) << name;
  }
  EXPECT_EQ(Initialize(), kSuccess);
}

TEST_F(BluetoothHciTest, WithoutItsOwnNameTheServiceLeaves) {
  root_.Write("/run/bthal/services/android.hardware.bluetooth.IBluetoothHci/default/x", "");
  StartBoard();
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), "exit 0");
  EXPECT_EQ(service_->CountInLog("Could not register as a service!"), 1U);
  EXPECT_TRUE(Await(*board_, WireEvent::kPowerOff, 1)) << "what had been brought up was left on";
}

// The request for the controller's debug information passes a command that the controller does not answer; others wait.
TEST_F(BluetoothHciTest, TheDebugInformationRequestDoesNotWait) {
  Start({"no-answer,opcode=0x1001"});
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(hal_->sendHciCommand(kReadVersion).isOk());
  EXPECT_TRUE(hal_->sendHciCommand(kReadAddress).isOk());
  EXPECT_TRUE(hal_->sendHciCommand(kReadDebugInformation).isOk());
  EXPECT_TRUE(Receives(*board_, 1, kReadDebugInformation));
  EXPECT_THAT(board_->Commands(), Not(Contains(kReadAddress)));
}

// A close that the client makes from inside a callback runs on the receive thread, which the teardown waits for and on
// which the answer to a reset would have to be read.
class CloseFromCallbackTest : public BluetoothHciTest, public ::testing::WithParamInterface<bool> {};

TEST_P(CloseFromCallbackTest, FromAnEvent) {
  Accelerate(GetParam());
  ASSERT_NO_FATAL_FAILURE(Open());
  std::atomic<bool> closed{false};
  client_->OnEvent([&](const Bytes&) { closed = closed || hal_->close().isOk(); });
  board_->SendPacket(4, {0x3E, 2, 0x7F, 0x01});
  ASSERT_TRUE(WaitFor([&] { return closed.load(); }));
  client_->OnEvent(nullptr);
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
  EXPECT_EQ(Count(*board_, WireEvent::kPatchLaunched), GetParam() ? 1U : 2U);
}

TEST_P(CloseFromCallbackTest, FromInitializationComplete) {
  Accelerate(GetParam());
  Start();
  client_->OnStatus([&](HalStatus) { EXPECT_TRUE(hal_->close().isOk()); });
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_EQ(FindService<ext::IBTChannelAvoidance>()->setBluetoothChannelStatus({}).getServiceSpecificError(), -22)
      << "extensions were started for a client that had gone";
  client_->OnStatus(nullptr);
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
}

// While initialize waits for the controller and cannot be interrupted: the close waits for it, the callback does not.
TEST_F(BluetoothHciTest, ACloseFromAnEventDuringInitializeFollowsIt) {
  Start();
  ASSERT_TRUE(Await(*board_, WireEvent::kSleepModeSet, 1));
  ASSERT_NO_FATAL_FAILURE(AddFault("late-answer,opcode=version,ms=300"));
  std::atomic<bool> closed{false};
  client_->OnEvent([&](const Bytes&) { closed = closed || hal_->close().isOk(); });
  const size_t commands = board_->Commands().size();
  auto status = std::async(std::launch::async, [&] { return Initialize(); });
  ASSERT_TRUE(WaitFor([&] { return board_->Commands().size() == commands + 2; }));
  board_->SendPacket(4, {0x3E, 2, 0x7F, 0x01});
  EXPECT_TRUE(WaitFor([&] { return closed.load(); }));
  EXPECT_EQ(status.get(), kSuccess);
  EXPECT_TRUE(service_->WaitForLog("BluetoothHci::close() Done"));
  client_->OnEvent(nullptr);
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
}

INSTANTIATE_TEST_SUITE_P(Acceleration, CloseFromCallbackTest, ::testing::Bool());

TEST_F(BluetoothHciTest, DumpShowsTheRecordAndTheStatistics) {
  ASSERT_NO_FATAL_FAILURE(Open());
  ASSERT_TRUE(Answers(kReset));
  ASSERT_TRUE(hal_->sendAclData({0x05, 0x20, 1, 0, 0xA1}).isOk());
  // The controller's account of its activity: 1 ms sending, 2 receiving, 3 idle.
  const Bytes activity = {0x0E, 20, 1, 0x59, 0xFD, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0};
  ASSERT_TRUE(WaitFor([&] {  // the extensions start beside the client
    board_->SendPacket(4, activity);
    return service_->CountInLog("handled by bthal.activity_watcher") > 0;
  }));
  unique_fd reader, nobody_reads;
  ASSERT_TRUE(::android::base::Pipe(&reader, &nobody_reads));
  reader.reset();
  EXPECT_EQ(hal_->dump(nobody_reads.get(), nullptr, 0), STATUS_OK);
  const std::string text = ReportOf(*hal_);
  EXPECT_EQ(service_->CountInLog("dump: Dump debug log"), 2U);
  for (const char* part :
       {"initialize_impl [ IN]", "initialize_impl [OUT]", "perform_init [ IN]",
        "perform_init: BTQNL controller is ready", "open_coex_dev, open the coex device (Success)",
        "sendHciCommand: 0x0C03 - 4 bytes [ IN]", "Commands to the controller: 1 packets, 3 bytes",
        "ACL data to the controller: 1 packets, 5 bytes", "sending 1 ms, receiving 2 ms, idle 3 ms, energy 4"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

// A death of the client: the forked one is made before this process has threads.
class ClientDeathTest : public BluetoothHciTest, public ::testing::WithParamInterface<bool> {
 protected:
  ClientProcess other_;
  ClientProcess third_;
};

TEST_P(ClientDeathTest, TheNextClientGetsAWorkingHal) {
  Accelerate(GetParam());
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  other_.Kill();
  ASSERT_TRUE(service_->WaitForLog("BluetoothDeathRecipient::serviceDied - Bluetooth service died"));
  ASSERT_EQ(third_.Initialize(), kSuccess);
  EXPECT_EQ(Count(*board_, WireEvent::kPatchLaunched), 2U);
  // Its successor does not wait to be told, and is no second client.
  third_.Kill();
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
  const bool recorded = ReportOf(*hal_).find("operator(): Skipping unlink call, service died") != std::string::npos;
  EXPECT_EQ(recorded, !GetParam());
  EXPECT_TRUE(hal_->close().isOk());
  EXPECT_EQ(service_->CountInLog("don't allow multiple clients"), 0U);
  EXPECT_EQ(service_->CountInLog("Skipping unlink call, service died.") > 0, !GetParam());
  EXPECT_TRUE(service_->IsAlive());
}

TEST_P(ClientDeathTest, WhileTheDeviceShutsDownNothingIsBroughtUpAgain) {
  Accelerate(GetParam());
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  SetProperty("sys.shutdown.requested", "0");
  const size_t commands = board_->Commands().size();
  other_.Kill();
  ASSERT_TRUE(service_->WaitForLog("serviceDied - shutdown = 0"));
  ASSERT_TRUE(service_->WaitForLog("skipped re-init during device shutting down."));
  EXPECT_EQ(board_->Commands().size(), commands);
  ASSERT_EQ(Initialize(), kSuccess) << "should the device think better of it";
  EXPECT_TRUE(Answers(kReset));
}

INSTANTIATE_TEST_SUITE_P(Acceleration, ClientDeathTest, ::testing::Bool());

class TwoClientsTest : public BluetoothHciTest {
 protected:
  ClientProcess other_;
};

// As a fallback to the direct UART does, which switches acceleration off under a client.
TEST_F(TwoClientsTest, ADeathAfterTheEndOfAccelerationBringsNothingUp) {
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  Accelerate(false);
  other_.Kill();
  ASSERT_TRUE(service_->WaitForLog("perform_close"));
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
  EXPECT_EQ(service_->CountInLog("thread_perform_init"), 1U);
}

TEST_F(TwoClientsTest, AClientThatBlocksDoesNotKeepTheServiceAliveOverSigterm) {
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  other_.BlockInNextEvent();
  board_->SendPacket(4, {0x3E, 2, 0x7F, 0x01});
  ASSERT_TRUE(other_.WaitUntilBlocked());
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("TerminationDeadline: not done after 2500 ms, killing the process"), 0U);
}

TEST_F(BluetoothHciTest, CloseWithoutASessionAborts) {
  Start();
  EXPECT_FALSE(hal_->close().isOk());
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_EQ(service_->CountInLog("F bthal.aidl.qnlbtlinux: BluetoothHci::close() called before any initialize()"), 1U);

  Serve();
  ASSERT_EQ(Initialize(), kSuccess);
  ASSERT_TRUE(hal_->close().isOk());
  EXPECT_FALSE(hal_->close().isOk());
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_EQ(service_->CountInLog("F bthal.aidl.qnlbtlinux: Unable to unlink to death recipient"), 1U);
}

TEST_F(BluetoothHciTest, BeforeTheEndOfTheBringUpSigtermHasItsDefaultAction) {
  StartBoard(SmallBoard({"no-answer,opcode=reset,count=always"}));
  StartService();
  ASSERT_TRUE(Receives(*board_, 1, kReset));
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 15");
}

TEST_F(BluetoothHciTest, InFinderModeARefusalLivesAndTheControllersAnswerEnds) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const auto finder = FindService<ext::IBluetoothFinder>();
  ASSERT_TRUE(finder->setPoweredOffMode(true).isOk());
  service_->Signal(SIGTERM);
  ASSERT_TRUE(service_->WaitForLog("Enter powered off mode failed!"));
  EXPECT_EQ(service_->CountInLog("Unable to send precomputed keys: No key"), 1U);
  EXPECT_TRUE(Answers(kReset));

  // The first attempt has used up the mode, with keys or without.
  ASSERT_TRUE(finder->sendPrecomputedKeys(Bytes(20, 0x11)).isOk());
  service_->Signal(SIGTERM);
  ASSERT_TRUE(service_->WaitForLog("Enter powered off mode failed!", 2));
  EXPECT_EQ(service_->CountInLog(": Already entered powered off mode"), 1U);
  EXPECT_TRUE(Answers(kReset));

  // Nor is there one in a controller that cannot be reset first.
  ASSERT_NO_FATAL_FAILURE(AddFault("wrong-status,opcode=reset"));
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("signal_handler: Accelerated Init failed"), 1U);
}

TEST_F(BluetoothHciTest, ABigHammerIsToldAndRestartsTheServiceQuietly) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const size_t offs = Count(*board_, WireEvent::kPowerOff);
  board_->SendCoexEvent({1, 0, 1, 0x42});
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_TRUE(client_->WaitForEvent(ErrorEvent(0x7F)));
  EXPECT_EQ(service_->CountInLog("resetBtCallback called"), 1U);
  EXPECT_EQ(service_->CountInLog("closeHci: hci_handle_ = nullptr"), 1U);
  EXPECT_TRUE(Await(*board_, WireEvent::kPowerOff, offs + 1));
}

TEST_F(BluetoothHciTest, ABigHammerDuringABringUpLeavesItAsItIs) {
  StartBoard(SmallBoard({"no-answer,opcode=reset"}));
  StartService();
  ASSERT_TRUE(Receives(*board_, 1, kReset));
  board_->SendCoexEvent({1, 0, 1, 0x42});
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("resetBtCallback: the HAL is being opened or closed, left as it is"), 1U);
}

TEST_F(BluetoothHciTest, AResetThatFailsAtOpeningOrClosingIsReportedWithItsKind) {
  Start();
  ASSERT_TRUE(Await(*board_, WireEvent::kSleepModeSet, 1));
  ASSERT_NO_FATAL_FAILURE(AddFault("wrong-status,opcode=reset"));
  Initialize();
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent(ErrorEvent(0x98)));
  EXPECT_EQ(service_->CountInLog("initialize_impl: Accelerated Init failed"), 1U);

  Serve();
  ASSERT_EQ(Initialize(), kSuccess);
  ASSERT_NO_FATAL_FAILURE(AddFault("wrong-status,opcode=reset"));
  EXPECT_FALSE(hal_->close().isOk());
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent(ErrorEvent(0x99)));
  EXPECT_EQ(service_->CountInLog("bthal.aidl.qnlbtlinux: Accelerated shutdown failed"), 1U);
}

TEST_F(BluetoothHciTest, WithoutTheCoexistenceDeviceTheBringUpIsReportedAfterThirtyAttempts) {
  StartBoard();
  std::filesystem::remove(root_.path() + "/dev/wbrc");
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("open_coex_dev: return ret (0), count:30"), 1U);
  EXPECT_EQ(service_->CountInLog("Failed to open coex device"), 1U);
  EXPECT_EQ(service_->CountInLog("error_code: (151), error_info: Can't open coex device"), 1U);
}

}  // namespace
}  // namespace bthal::test
