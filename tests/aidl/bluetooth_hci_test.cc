#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothCcc.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothEwp.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothExt.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothSar.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include <android-base/properties.h>
#include <android-base/unique_fd.h>

#include "support/board_host.h"
#include "support/board_session.h"
#include "support/wait_for.h"

namespace bthal::test {
namespace {

namespace ext = ::aidl::vendor::tovani::bluetooth_ext;
using ::aidl::android::hardware::bluetooth::Status;
using sim::JournalEntry;
using sim::WireEvent;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const Bytes kReset = {0x03, 0x0C, 0};
const Bytes kReadVersion = {0x01, 0x10, 0};
const Bytes kReadAddress = {0x09, 0x10, 0};
const Bytes kReadDebugInformation = {0x5B, 0xFD, 0};

// The event with which the stack hears of a fatal error of this kind.
Bytes ErrorEvent(uint8_t kind) { return {0xFF, 4, 0x58, 5, 0, kind}; }

bool IsCompletionOf(uint16_t opcode, const Bytes& event) {
  return event.size() > 5 && event[0] == 0x0E && (event[3] | event[4] << 8) == opcode;
}

// The service as a process, the board as its controller, and a client in the test's own process.
class BluetoothHciTest : public BoardSessionTest {
 protected:
  void SwitchAcceleration(bool on) {
    ::android::base::SetProperty("persist.bluetooth.disable.accelerate.bt.on", on ? "false" : "true");
  }

  void StartBoard(std::vector<std::string> faults = {}) {
    sim::BoardOptions options = SmallBoard();
    options.faults = std::move(faults);
    BoardSessionTest::StartBoard(options);
  }

  void Start(std::vector<std::string> faults = {}) {
    StartBoard(std::move(faults));
    Serve();
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
    const auto opcode = static_cast<uint16_t>(command[0] | command[1] << 8);
    const auto answers = [&] {
      const auto events = client_->Events();
      return std::count_if(events.begin(), events.end(),
                           [&](const Bytes& event) { return IsCompletionOf(opcode, event); });
    };
    const auto before = answers();
    return hal_->sendHciCommand(command).isOk() && WaitFor([&] { return answers() == before + 1; });
  }

  bool BoardReceived(uint8_t packet_type, const Bytes& packet) const {
    return board_->WaitFor(
        [&](const std::vector<JournalEntry>& journal) {
          return std::any_of(journal.begin(), journal.end(), [&](const JournalEntry& entry) {
            return entry.event == WireEvent::kReceived && entry.packet_type == packet_type && entry.bytes == packet;
          });
        },
        std::chrono::seconds(20));
  }
};

constexpr int kSuccess = static_cast<int>(Status::SUCCESS);

TEST_F(BluetoothHciTest, EveryServiceIsPublishedAndRefusesWhatItDoesNotDo) {
  Start();
  ASSERT_NE(FindService<ext::IBluetoothEwp>(), nullptr);
  EXPECT_EQ(FindService<ext::IBluetoothSar>()->setBluetoothTxPowerCap(1).getExceptionCode(), EX_UNSUPPORTED_OPERATION);
  EXPECT_EQ(FindService<ext::IBluetoothCcc>()->unregisterLmpEvents({}).getExceptionCode(), EX_UNSUPPORTED_OPERATION);
  const auto refused = FindService<ext::IBluetoothExt>()->sendHciCommand(kReset);
  EXPECT_EQ(refused.getExceptionCode(), EX_UNSUPPORTED_OPERATION);
  EXPECT_STREQ(refused.getMessage(), "HCI command injection is not offered");
  EXPECT_EQ(FindService<ext::IBTChannelAvoidance>()->setBluetoothChannelStatus({}).getServiceSpecificError(), -22);
  EXPECT_TRUE(FindService<ext::IBluetoothFinder>()->setPoweredOffMode(false).isOk());
}

TEST_F(BluetoothHciTest, AnExtensionThatCannotBePublishedLeavesTheHalUsable) {
  for (const char* name :
       {"BluetoothCcc", "BluetoothExt", "BluetoothEwp", "BluetoothFinder", "BluetoothSar", "BTChannelAvoidance"}) {
    root_.Write(std::string("/run/bthal/services/vendor.tovani.bluetooth_ext.I") + name + "/default/x", "");
  }
  Start();
  for (const char* name : {"BluetoothCcc", "BluetoothHciInject", "BluetoothEwp", "BluetoothFinder", "BluetoothSar",
                           "BTChannelAvoidance"}) {
    EXPECT_EQ(service_->CountInLog(std::string("Could not register ") + name + " as a service!"), 1U) << name;
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

TEST_F(BluetoothHciTest, PacketsOfEveryKindGoBothWays) {
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
  EXPECT_TRUE(Answers(kReadVersion));

  const Bytes acl = {0x05, 0x20, 2, 0, 0xA1, 0xA2};
  const Bytes sco = {0x06, 0x00, 1, 0xB1};
  const Bytes iso = {0x07, 0x20, 1, 0, 0xC1};
  EXPECT_TRUE(hal_->sendAclData(acl).isOk());
  EXPECT_TRUE(hal_->sendScoData(sco).isOk());
  EXPECT_TRUE(hal_->sendIsoData(iso).isOk());
  EXPECT_TRUE(BoardReceived(2, acl));
  EXPECT_TRUE(BoardReceived(3, sco));
  EXPECT_TRUE(BoardReceived(5, iso));

  const Bytes event = {0x3E, 2, 0x7F, 0x01};
  board_->SendPacket(2, acl);
  board_->SendPacket(3, sco);
  board_->SendPacket(5, iso);
  board_->SendPacket(4, event);
  EXPECT_TRUE(client_->WaitForEvent(event));
  EXPECT_THAT(client_->Acl(), ElementsAre(acl));
  EXPECT_THAT(client_->Sco(), ElementsAre(sco));
  EXPECT_THAT(client_->Iso(), ElementsAre(iso));
}

TEST_F(BluetoothHciTest, RefusesNullCallbacksAndTooShortCommandsAndGoesOn) {
  Start();
  EXPECT_EQ(hal_->initialize(nullptr).getServiceSpecificError(), -22);
  // Before initialize, packets are dropped; nothing but the bring-up has reached the board.
  EXPECT_TRUE(hal_->sendHciCommand(kReadVersion).isOk());
  ASSERT_EQ(Initialize(), kSuccess);
  for (const Bytes& command : {Bytes{}, Bytes{0x03}}) {
    const auto status = hal_->sendHciCommand(command);
    EXPECT_EQ(status.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_STREQ(status.getMessage(), "Wrong Command Size!");
  }
  EXPECT_TRUE(Answers(kReadAddress));
}

// The request for the controller's debug information passes a command that the controller does not answer; others wait.
TEST_F(BluetoothHciTest, TheDebugInformationRequestDoesNotWait) {
  Start({"no-answer,opcode=0x1001"});
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(hal_->sendHciCommand(kReadVersion).isOk());
  EXPECT_TRUE(hal_->sendHciCommand(kReadAddress).isOk());
  EXPECT_TRUE(hal_->sendHciCommand(kReadDebugInformation).isOk());
  EXPECT_TRUE(BoardReceived(1, kReadDebugInformation));
  EXPECT_THAT(board_->Commands(), Not(Contains(kReadAddress)));
}

TEST_F(BluetoothHciTest, AcceleratedTheControllerIsUpBeforeTheClientAndStaysUpAfterIt) {
  SwitchAcceleration(true);
  Start();
  ASSERT_TRUE(Await(*board_, WireEvent::kSleepModeSet, 1));
  for (int session = 0; session < 3; ++session) {
    ASSERT_EQ(Initialize(), kSuccess);
    EXPECT_TRUE(Answers(kReadVersion));
    ASSERT_TRUE(hal_->close().isOk());
    EXPECT_EQ(board_->Commands().back(), (Bytes{0x79, 0xFC, 0})) << "the reset of the close";
  }
  EXPECT_EQ(Count(*board_, WireEvent::kPatchLaunched), 1U);
  EXPECT_EQ(service_->CountInLog("BluetoothHci::close() Done"), 3U);
}

TEST_F(BluetoothHciTest, UnacceleratedEveryClientPowersTheController) {
  SwitchAcceleration(false);
  Start();
  EXPECT_THAT(board_->Commands(), IsEmpty());
  for (size_t session = 1; session <= 2; ++session) {
    ASSERT_EQ(Initialize(), kSuccess);
    EXPECT_TRUE(Answers(kReadVersion));
    const size_t offs = Count(*board_, WireEvent::kPowerOff);
    ASSERT_TRUE(hal_->close().isOk());
    EXPECT_TRUE(Await(*board_, WireEvent::kPowerOff, offs + 1));
    EXPECT_EQ(Count(*board_, WireEvent::kPatchLaunched), session);
  }
  EXPECT_TRUE(hal_->sendHciCommand(kReset).isOk()) << "dropped without a word";
}

// A close that the client makes from inside a callback runs on the receive thread, which the teardown waits for and on
// which the answer to a reset would have to be read.
class CloseFromCallbackTest : public BluetoothHciTest, public ::testing::WithParamInterface<bool> {};

TEST_P(CloseFromCallbackTest, FromAnEvent) {
  SwitchAcceleration(GetParam());
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
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
  SwitchAcceleration(GetParam());
  Start();
  client_->OnStatus([&](Status) { EXPECT_TRUE(hal_->close().isOk()); });
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
  std::string error;
  ASSERT_TRUE(board_->AddFault("late-answer,opcode=version,ms=300", &error)) << error;
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

TEST_F(BluetoothHciTest, ExtensionsWorkWhileAClientIsThere) {
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
  const auto avoidance = FindService<ext::IBTChannelAvoidance>();
  // They start beside the client.
  EXPECT_TRUE(WaitFor([&] { return avoidance->setBluetoothChannelStatus({0xFF}).isOk(); }));
  EXPECT_TRUE(BoardReceived(1, {0x3F, 0x0C, 10, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  ASSERT_TRUE(hal_->close().isOk());
  EXPECT_EQ(avoidance->setBluetoothChannelStatus({}).getServiceSpecificError(), -22);
}

TEST_F(BluetoothHciTest, DumpShowsTheRecordAndTheStatistics) {
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
  ASSERT_TRUE(Answers(kReset));
  ASSERT_TRUE(hal_->sendAclData({0x05, 0x20, 1, 0, 0xA1}).isOk());
  // The controller's account of its activity: 1 ms sending, 2 receiving, 3 idle.
  const Bytes activity = {0x0E, 20, 1, 0x59, 0xFD, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0};
  ASSERT_TRUE(WaitFor([&] {  // the extensions start beside the client
    board_->SendPacket(4, activity);
    return service_->CountInLog("handled by bthal.activity_watcher") > 0;
  }));
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const ::android::base::unique_fd nobody_reads(ends[1]);
  close(ends[0]);
  EXPECT_EQ(AIBinder_dump(hal_->asBinder().get(), nobody_reads.get(), nullptr, 0), STATUS_OK);
  const ::android::base::unique_fd report(open(root_.Below("/report").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(AIBinder_dump(hal_->asBinder().get(), report.get(), nullptr, 0), STATUS_OK);
  const std::string text = root_.Read("/report");
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
};

TEST_P(ClientDeathTest, TheNextClientGetsAWorkingHal) {
  SwitchAcceleration(GetParam());
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  other_.Kill();
  ASSERT_TRUE(service_->WaitForLog("BluetoothDeathRecipient::serviceDied - Bluetooth service died"));
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
  EXPECT_TRUE(hal_->close().isOk());
  EXPECT_TRUE(service_->IsAlive());
  EXPECT_EQ(Count(*board_, WireEvent::kPatchLaunched), 2U);
}

// Its successor does not wait to be told.
TEST_P(ClientDeathTest, AClientThatRestartsIsNoSecondClient) {
  SwitchAcceleration(GetParam());
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  other_.Kill();
  ASSERT_EQ(Initialize(), kSuccess);
  EXPECT_TRUE(Answers(kReset));
  EXPECT_EQ(service_->CountInLog("don't allow multiple clients"), 0U);
}

TEST_P(ClientDeathTest, WhileTheDeviceShutsDownNothingIsBroughtUpAgain) {
  SwitchAcceleration(GetParam());
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  ::android::base::SetProperty("sys.shutdown.requested", "0");
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

TEST_F(TwoClientsTest, ASecondClientIsToldAndEndsTheService) {
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  EXPECT_EQ(Initialize(), static_cast<int>(Status::ALREADY_INITIALIZED));
  EXPECT_TRUE(service_->IsAlive()) << "dies a second later";
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("initialize_impl: make hal crash for recovering caller's abnormal behavior!"), 1U);
  EXPECT_EQ(service_->CountInLog("thread_perform_self_kill self kill"), 1U);
}

// As a fallback to the direct UART does, which switches acceleration off under a client.
TEST_F(TwoClientsTest, ADeathAfterTheEndOfAccelerationBringsNothingUp) {
  Start();
  ASSERT_EQ(other_.Initialize(), kSuccess);
  SwitchAcceleration(false);
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

TEST_F(BluetoothHciTest, SigtermPowersTheControllerOffAndEndsTheService) {
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
  const size_t offs = Count(*board_, WireEvent::kPowerOff);
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("W bthal.aidl.qnlbtlinux: signal_handler: Caught Signal! signum: 15"), 1U);
  EXPECT_TRUE(Await(*board_, WireEvent::kPowerOff, offs + 1));
}

TEST_F(BluetoothHciTest, BeforeTheEndOfTheBringUpSigtermHasItsDefaultAction) {
  StartBoard({"no-answer,opcode=reset,count=always"});
  StartService();
  ASSERT_TRUE(BoardReceived(1, kReset));
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 15");
}

TEST_F(BluetoothHciTest, InFinderModeARefusalLivesAndTheControllersAnswerEnds) {
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
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
}

TEST_F(BluetoothHciTest, InFinderModeTheControllerStaysOnWithItsKeys) {
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
  const auto finder = FindService<ext::IBluetoothFinder>();
  ASSERT_TRUE(finder->sendPrecomputedKeys(Bytes(500, 0x11)).isOk());
  ASSERT_TRUE(finder->setPoweredOffMode(true).isOk());
  const size_t offs = Count(*board_, WireEvent::kPowerOff);
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(Count(*board_, WireEvent::kPowerOff), offs);
  const auto commands = board_->Commands();
  ASSERT_GE(commands.size(), 4U);
  std::vector<size_t> sizes;
  for (auto command = commands.end() - 4; command != commands.end(); ++command) sizes.push_back(command->size());
  EXPECT_THAT(sizes, ElementsAre(246U, 246U, 26U, 12U));
}

TEST_F(BluetoothHciTest, ABigHammerIsToldAndRestartsTheServiceQuietly) {
  Start();
  ASSERT_EQ(Initialize(), kSuccess);
  const size_t offs = Count(*board_, WireEvent::kPowerOff);
  board_->SendCoexEvent({1, 0, 1, 0x42});
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_TRUE(client_->WaitForEvent(ErrorEvent(0x7F)));
  EXPECT_EQ(service_->CountInLog("resetBtCallback called"), 1U);
  EXPECT_EQ(service_->CountInLog("closeHci: hci_handle_ = nullptr"), 1U);
  EXPECT_TRUE(Await(*board_, WireEvent::kPowerOff, offs + 1));
}

TEST_F(BluetoothHciTest, ABigHammerDuringABringUpLeavesItAsItIs) {
  StartBoard({"no-answer,opcode=reset"});
  StartService();
  ASSERT_TRUE(BoardReceived(1, kReset));
  board_->SendCoexEvent({1, 0, 1, 0x42});
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("resetBtCallback: the HAL is being opened or closed, left as it is"), 1U);
}

TEST_F(BluetoothHciTest, AFailedBringUpIsToldToTheClientAndEndsTheService) {
  SwitchAcceleration(false);
  Start({"wrong-status,opcode=reset,count=always"});
  Initialize();
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent(ErrorEvent(0x93)));
  EXPECT_THAT(client_->Statuses(), Not(Contains(Status::SUCCESS)));
  EXPECT_THAT(service_->Log(), HasSubstr("HostResetBeforeFw"));

  board_->ClearFaults();
  Serve();
  EXPECT_EQ(Initialize(), kSuccess) << "after a restart all is well";
}

TEST_F(BluetoothHciTest, AFailedBringUpWithoutAClientEndsTheServiceQuietly) {
  StartBoard({"wrong-status,opcode=reset,count=always"});
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("ReportBqrError: slient recover!"), 1U);
}

TEST_F(BluetoothHciTest, AResetThatFailsAtOpeningOrClosingIsReportedWithItsKind) {
  Start();
  ASSERT_TRUE(Await(*board_, WireEvent::kSleepModeSet, 1));
  std::string error;
  ASSERT_TRUE(board_->AddFault("wrong-status,opcode=reset", &error)) << error;
  Initialize();
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent(ErrorEvent(0x98)));

  Serve();
  ASSERT_EQ(Initialize(), kSuccess);
  ASSERT_TRUE(board_->AddFault("wrong-status,opcode=reset", &error)) << error;
  EXPECT_FALSE(hal_->close().isOk());
  EXPECT_EQ(service_->WaitForEndText(), "signal 6");
  EXPECT_TRUE(client_->WaitForEvent(ErrorEvent(0x99)));
}

TEST_F(BluetoothHciTest, WithoutTheCoexistenceDeviceTheBringUpIsReportedAfterThirtyAttempts) {
  StartBoard();
  std::filesystem::remove(root_.path() + "/dev/wbrc");
  StartService();
  EXPECT_EQ(service_->WaitForEndText(), "signal 9");
  EXPECT_EQ(service_->CountInLog("open_coex_dev: return ret (0), count:30"), 1U);
  EXPECT_EQ(service_->CountInLog("error_code: (151), error_info: Can't open coex device"), 1U);
}

}  // namespace
}  // namespace bthal::test
