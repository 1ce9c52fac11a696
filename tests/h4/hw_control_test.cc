#include "h4/hw_control/hw_control.h"

#include <sys/mman.h>
#include <termios.h>

#include "conf/conf.h"
#include "conf/userial_type.h"
#include "os/kill_self.h"
#include "shim/shim.h"
#include "support/diagnostics.h"
#include "support/fifo_node.h"
#include "support/pty.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hwcontrol {
namespace {

using namespace ::bthal::test;

constexpr char kLpm[] = "/proc/bluetooth/sleep/lpm";
constexpr char kBtWrite[] = "/proc/bluetooth/sleep/btwrite";
constexpr char kUartDebug[] = "/sys/devices/platform/155d0000.serial/uart_dbg";
constexpr char kCapacity[] = "/sys/class/power_supply/battery/capacity";

class HwControlTest : public ::testing::Test {
 protected:
  HwControlTest() {
    signal(SIGPIPE, SIG_IGN);
    os::SetKillSelfForTest([] {});  // so that one sees what comes after a report
  }
  ~HwControlTest() override { os::SetKillSelfForTest(nullptr); }

  static inline const std::set<std::string> kTags = {"bthal.hwcontrol", "bthal.debug_central", "coex_device"};

  BtHwControl& control_ = BtHwControl::Get();
  TempRoot root_;
  Recorded recorded_;
  LogCapture log_;
};

TEST_F(HwControlTest, PowerSwitchIsTheEntryWhoseTypeIsExactlyBluetooth) {
  const std::string entry = "/sys/class/rfkill/rfkill";
  const char* const types[] = {"wlan\n", "", "bluetooth2\n", "bluetooth\n"};
  for (int i = 0; i < 4; ++i) {
    root_.Write(entry + std::to_string(i) + "/type", types[i]);
    root_.Write(entry + std::to_string(i) + "/state", "x");
  }
  root_.Write(entry + "3/name", "hci0\n");
  EXPECT_TRUE(control_.PowerControl(true));
  EXPECT_EQ(root_.Read(entry + "3/state"), "1");
  EXPECT_TRUE(control_.PowerControl(false));
  EXPECT_EQ(root_.Read(entry + "3/state"), "0");
  for (const char* other : {"0", "1", "2"}) EXPECT_EQ(root_.Read(entry + other + "/state"), "x");
  const std::string log = log_.Text(kTags);
  EXPECT_EQ(log.substr(0, log.rfind("D rfkill_state_finder: rfkill candidate /sys/class/rfkill/rfkill0/")), R"(
D rfkill_state_finder: rfkill candidate /sys/class/rfkill/rfkill0/type is [wlan]
D rfkill_state_finder: rfkill candidate /sys/class/rfkill/rfkill2/type is [bluetooth2]
D rfkill_state_finder: rfkill candidate /sys/class/rfkill/rfkill3/type is [bluetooth]
I rfkill_state_finder: Use rfkill /sys/class/rfkill/rfkill3/state.
I rfkill_state_finder: /sys/class/rfkill/rfkill3 is [hci0]
I PowerControl: Enabling
I BtRegOnCoordinate: enabling=1, after=0
I BtSend msg: 0x47
I WriteEvent
E Failed to write the message to coex device!!
I BtRegOnCoordinate: enabling=1, after=1
I BtSend msg: 0x48
I WriteEvent
E Failed to write the message to coex device!!
)");
  EXPECT_EQ(recorded_.Text(), R"(
PowerControl [ IN]
PowerControl: Enabling, state_path: /sys/class/rfkill/rfkill3/state
PowerControl [OUT]
PowerControl [ IN]
PowerControl: Disabling, state_path: /sys/class/rfkill/rfkill3/state
PowerControl [OUT]
)");
}

TEST_F(HwControlTest, WithoutAnEntryPowerIsSomebodyElses) {
  root_.Write("/sys/class/rfkill/rfkill1/type", "bluetooth");  // behind a gap: never found
  root_.Write("/sys/class/rfkill/rfkill1/state", "x");
  EXPECT_TRUE(control_.PowerControl(true));
  EXPECT_EQ(root_.Read("/sys/class/rfkill/rfkill1/state"), "x");
  EXPECT_TRUE(log_.Has("rfkill_state_finder: Open(/sys/class/rfkill/rfkill0/type): No such file or directory (2)"));
  EXPECT_TRUE(log_.Has("PowerControl: Power sequence is not controlled by Bluetooth HAL"));
}

TEST_F(HwControlTest, PowerFailureIsReported) {
  root_.Write("/sys/class/rfkill/rfkill0/type", "bluetooth");
  EXPECT_FALSE(control_.PowerControl(true));
  EXPECT_EQ(log_.Text(kTags), R"(
D rfkill_state_finder: rfkill candidate /sys/class/rfkill/rfkill0/type is [bluetooth]
I rfkill_state_finder: Use rfkill /sys/class/rfkill/rfkill0/state.
E PowerControl: Unable to open rfkill state {/sys/class/rfkill/rfkill0/state}: No such file or directory (2)
E ReportBqrError: root inflamed event with error_code: (145), error_info: Unable to open rfkill state
E ReportBqrError: slient recover!
)");
  log_.Clear();

  std::filesystem::create_symlink("/dev/full", root_.Below("/sys/class/rfkill/rfkill0/state"));
  EXPECT_FALSE(control_.PowerControl(true));
  EXPECT_EQ(log_.Text(kTags), R"(
D rfkill_state_finder: rfkill candidate /sys/class/rfkill/rfkill0/type is [bluetooth]
I rfkill_state_finder: Use rfkill /sys/class/rfkill/rfkill0/state.
I PowerControl: Enabling
I BtRegOnCoordinate: enabling=1, after=0
I BtSend msg: 0x47
I WriteEvent
E Failed to write the message to coex device!!
E PowerControl: Failed to change rfkill state: No space left on device (28)
I BtRegOnCoordinate: enabling=1, after=1
I BtSend msg: 0x48
I WriteEvent
E Failed to write the message to coex device!!
E ReportBqrError: root inflamed event with error_code: (145), error_info: Cannot write power control data
E ReportBqrError: slient recover!
)") << "the coexistence driver is told whether or not it worked";
  log_.Clear();

  // A FIFO that nobody holds open is an error, not a wait.
  std::filesystem::remove(root_.Below("/sys/class/rfkill/rfkill0/state"));
  ASSERT_EQ(mkfifo(root_.Below("/sys/class/rfkill/rfkill0/state").c_str(), 0600), 0);
  EXPECT_FALSE(control_.PowerControl(true));
  EXPECT_TRUE(log_.Has("No such device or address (6)"));
}

// The serial type comes from the shim, which takes it from the configuration.
class UserialTest : public HwControlTest {
 protected:
  ~UserialTest() override { control_.UserialClose(); }

  // Opens through the shim, there being no power switch here.
  bool Open(uint32_t type, const std::string& port) {
    std::error_code ignored;
    std::filesystem::create_symlink(port, root_.Below("/dev/ttyTest"), ignored);
    conf::Config::GetInstance().userial_type = type;
    conf::Config::GetInstance().uart_port = "/dev/ttyTest";
    return hci::shim::InitializeController();
  }

  termios Attributes() const {
    termios attributes{};
    tcgetattr(line_.controller(), &attributes);
    return attributes;
  }

  Pty line_;
};

TEST_F(UserialTest, EveryTtyStartsRawAt115200WithFlowControl) {
  termios before = Attributes();
  before.c_lflag |= ICANON | ECHO;
  cfsetspeed(&before, B9600);
  tcsetattr(line_.controller(), TCSANOW, &before);
  line_.Write({0x04, 0xFF, 0x00});  // of an earlier life: flushed

  ASSERT_TRUE(Open(conf::kUserialApm, line_.host_path()));
  const termios after = Attributes();
  EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B115200));
  EXPECT_EQ(cfgetispeed(&after), static_cast<speed_t>(B115200));
  EXPECT_NE(after.c_cflag & CRTSCTS, 0u);
  EXPECT_EQ(after.c_lflag & (ICANON | ECHO | ISIG), 0u);
  const int fd = control_.userial_fd();
  ASSERT_GE(fd, 0);
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  pollfd readable{fd, POLLIN, 0};
  EXPECT_EQ(poll(&readable, 1, 0), 0);
  EXPECT_TRUE(log_.Has("userial_tty_open: open /dev/ttyTest"));
  EXPECT_TRUE(log_.Has("UserialOpen: USERIAL (1) Ready"));

  control_.BaudrateChange(UartBaudRate::kUartBaudRate4000000);
  const termios fast = Attributes();
  EXPECT_EQ(cfgetospeed(&fast), static_cast<speed_t>(B4000000));
  EXPECT_NE(fast.c_cflag & CRTSCTS, 0u);
  control_.BaudrateChange(UartBaudRate::kUartBaudRate6000000);
  const termios refused = Attributes();
  EXPECT_EQ(cfgetospeed(&refused), static_cast<speed_t>(B4000000));
  EXPECT_TRUE(log_.Has("BaudrateChange: Baud rate (6000000) unsupported"));
  control_.BaudrateChange(UartBaudRate::kUartBaudRate3000000);
  const termios slower = Attributes();
  EXPECT_EQ(cfgetispeed(&slower), static_cast<speed_t>(B3000000));

  EXPECT_FALSE(log_.Has("did not take"));
  control_.UserialClose();
  control_.UserialClose();
  EXPECT_EQ(control_.userial_fd(), -1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

// What has no speed takes none, and says nothing of it by itself.
TEST_F(UserialTest, ASpeedThatIsNotTakenIsNamed) {
  const std::string fifo = root_.Below("/dev/fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_TRUE(Open(conf::kUserialApm, fifo));
  EXPECT_TRUE(log_.Has("userial_tty_open: /dev/ttyTest did not take 115200 bit/s"));
  control_.BaudrateChange(UartBaudRate::kUartBaudRate3000000);
  EXPECT_TRUE(log_.Has("BaudrateChange: /dev/ttyTest did not take 3000000 bit/s"));
}

TEST_F(UserialTest, OpeningAgainLeavesNoDescriptorBehind) {
  ASSERT_TRUE(Open(conf::kUserialApm, line_.host_path()));
  const size_t open_before = CountEntries("/proc/self/fd");
  ASSERT_TRUE(control_.UserialOpen(conf::kUserialApm));
  EXPECT_EQ(CountEntries("/proc/self/fd"), open_before);
}

TEST_F(UserialTest, PortThatCannotBeOpenedIsReported) {
  EXPECT_FALSE(Open(conf::kUserialApm, root_.path()));  // a folder
  EXPECT_TRUE(log_.Has("userial_tty_open: Can't open Bluetooth UART port: Is a directory (21)"));
  EXPECT_TRUE(log_.Has("error_code: (144), error_info: Host Open Port Error"));
  EXPECT_EQ(control_.userial_fd(), -1);
}

TEST_F(UserialTest, OtherTypesAreTheKernelsUserChannel) {
  constexpr uint32_t kUserChannel = 5;
  // Few machines that run this have a free controller; those that have one open it.
  if (Open(kUserChannel, line_.host_path())) {
    EXPECT_GE(control_.userial_fd(), 0);
    EXPECT_TRUE(log_.Has("UserialOpen: USERIAL (5) Ready"));
  } else {
    EXPECT_EQ(log_.Count("userial_socket_open: Can't create Bluetooth HCI socket: ") +
                  log_.Count("userial_socket_open: HCI User Channel Error: "),
              1u);
    EXPECT_EQ(log_.Count("userial_socket_open: "), 2u);  // and in words
    EXPECT_TRUE(log_.Has("error_code: (144), error_info: Host Open Port Error"));
  }
  EXPECT_FALSE(log_.Has("userial_tty_open"));
}

TEST_F(HwControlTest, WakeLineFollowsSetupSuspendWakeAndTeardown) {
  EXPECT_TRUE(control_.LpmSuspend());
  EXPECT_TRUE(control_.LpmWakeUp());

  FifoNode lpm(root_, kLpm), wake(root_, kBtWrite);
  ASSERT_TRUE(control_.LpmSetup());
  EXPECT_TRUE(control_.IsLpmRunning());
  EXPECT_EQ(lpm.Take(), "1");
  EXPECT_EQ(wake.Take(), "1");
  EXPECT_TRUE(control_.LpmSuspend());
  EXPECT_EQ(wake.Take(), "0");
  EXPECT_TRUE(control_.LpmWakeUp());
  EXPECT_EQ(wake.Take(), "1");
  control_.LpmTeardown();
  EXPECT_FALSE(control_.IsLpmRunning());
  EXPECT_EQ(lpm.Take(), "0");
  EXPECT_EQ(wake.Take(), "");

  ASSERT_TRUE(control_.LpmSetup());
  wake.CloseReader();
  EXPECT_FALSE(control_.LpmSuspend());
  EXPECT_FALSE(control_.LpmWakeUp());
  control_.LpmTeardown();
  EXPECT_EQ(log_.Text(kTags), R"(
I LpmSetup: LPM enabling
I LpmTeardown: LPM disabling
D LpmTeardown: LPM Disabled
I LpmSetup: LPM enabling
E LpmSuspend: Unable to suspend LPM:Broken pipe (32)
E LpmWakeUp: Unable to wake up LPM:Broken pipe (32)
I LpmTeardown: LPM disabling
D LpmTeardown: LPM Disabled
)");
  EXPECT_EQ(recorded_.Text(), R"(
LpmSetup: LPM enabling
LpmSuspend: Deassert
LpmWakeUp: Assert
LpmTeardown: LPM disabling
LpmSetup: LPM enabling
LpmSuspend: Unable to suspend LPM, Broken pipe (32)
LpmWakeUp: Unable to wake up LPM, Broken pipe (32)
LpmTeardown: LPM disabling
)");
}

TEST_F(HwControlTest, FailedLpmSetupLeavesItTornDown) {
  const size_t open_before = CountEntries("/proc/self/fd");
  EXPECT_FALSE(control_.LpmSetup());

  root_.Write(kBtWrite, "");
  EXPECT_FALSE(control_.LpmSetup());

  std::filesystem::create_symlink("/dev/full", root_.Below(kLpm));
  EXPECT_FALSE(control_.LpmSetup());

  std::filesystem::remove(root_.Below(kLpm));
  std::filesystem::remove(root_.Below(kBtWrite));
  root_.Write(kLpm, "");
  std::filesystem::create_symlink("/dev/full", root_.Below(kBtWrite));
  EXPECT_FALSE(control_.LpmSetup());
  EXPECT_EQ(root_.Read(kLpm), "0");
  std::filesystem::remove(root_.Below(kLpm));
  control_.LpmTeardown();
  EXPECT_EQ(log_.Text(kTags), R"(
I LpmSetup: LPM enabling
W LpmSetup: Unable to open LPM control port (/proc/bluetooth/sleep/btwrite): No such file or directory (2)
I LpmSetup: LPM enabling
E LpmSetup: Unable to open LPM driver (/proc/bluetooth/sleep/lpm): No such file or directory (2)
I LpmSetup: LPM enabling
E LpmSetup: Unable to enable LPM driver (/proc/bluetooth/sleep/lpm): No space left on device (28)
I LpmTeardown: LPM disabling
E LpmTeardown: Unable to disable LPM driver (/proc/bluetooth/sleep/lpm): No space left on device (28)
D LpmTeardown: LPM Disabled
I LpmSetup: LPM enabling
E LpmSetup: Unable to wake up LPM:No space left on device (28)
I LpmTeardown: LPM disabling
D LpmTeardown: LPM Disabled
I LpmTeardown: LPM disabling
E LpmTeardown: Unable to close LPM driver (/proc/bluetooth/sleep/lpm): No such file or directory (2)
)");
  EXPECT_EQ(recorded_.Text(), R"(
LpmSetup: LPM enabling
LpmSetup: Unable to open LPM control port, No such file or directory (2)
LpmSetup: LPM enabling
LpmSetup: Unable to open LPM driver, No such file or directory (2)
LpmSetup: LPM enabling
LpmTeardown: LPM disabling
LpmSetup: LPM enabling
LpmSetup: Unable to wake up LPM: No space left on device (28)
LpmTeardown: LPM disabling
LpmTeardown: LPM disabling
LpmTeardown: Unable to close LPM driver, No such file or directory (2)
)");

  EXPECT_FALSE(control_.IsLpmRunning());
  EXPECT_EQ(CountEntries("/proc/self/fd"), open_before);
}

TEST_F(HwControlTest, SkipSuspendKeepsItsDescriptor) {
  EXPECT_FALSE(control_.UartSkipSuspend(true));
  FifoNode node(root_, kUartDebug);
  const size_t open_before = CountEntries("/proc/self/fd");
  EXPECT_TRUE(control_.UartSkipSuspend(true));
  EXPECT_TRUE(control_.UartSkipSuspend(false));
  EXPECT_EQ(node.Take(), "89");
  EXPECT_EQ(CountEntries("/proc/self/fd"), open_before + 2);
  node.CloseReader();
  EXPECT_FALSE(control_.UartSkipSuspend(true));
  std::filesystem::remove(root_.Below(kUartDebug));
  std::filesystem::create_symlink("/dev/full", root_.Below(kUartDebug));
  EXPECT_FALSE(control_.UartSkipSuspend(true));
  EXPECT_EQ(log_.Text(kTags), R"(
I UartSkipSuspend: open UartCtrl device node
W UartSkipSuspend: Unable to open UartCtrl port (/sys/devices/platform/155d0000.serial/uart_dbg): No such file or directory (2)
I UartSkipSuspend: open UartCtrl device node
I UartSkipSuspend: enable UART skip suspend
I UartSkipSuspend: open UartCtrl device node
I UartSkipSuspend: disable UART skip suspend
I UartSkipSuspend: open UartCtrl device node
W UartSkipSuspend: Unable to open UartCtrl port (/sys/devices/platform/155d0000.serial/uart_dbg): No such device or address (6)
I UartSkipSuspend: open UartCtrl device node
E UartSkipSuspend: Unable to set uart IOCTRL:No space left on device (28)
)");
}

TEST_F(HwControlTest, BatteryLevelIsTheTextOfItsNode) {
  std::string level = "as it was";
  EXPECT_FALSE(control_.GetBatteryPercentage(level));
  EXPECT_TRUE(log_.Has("GetBatteryPercentage: Unable to open Bttery Percentage device node (" + std::string(kCapacity) +
                       "): No such file or directory (2)"));
  root_.Write(kCapacity, "");
  EXPECT_FALSE(control_.GetBatteryPercentage(level));
  EXPECT_EQ(level, "as it was");
  root_.Write(kCapacity, "100\n");
  EXPECT_TRUE(control_.GetBatteryPercentage(level));
  EXPECT_EQ(level, "100");
}

TEST_F(HwControlTest, DebugDumpIsOneWrite) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);  // keeps the writes apart
  const unique_fd reader(ends[0]), writer(ends[1]);
  const std::string ruler(45, '=');
  char text[512];
  const auto dump = [&](const std::string& path) {
    control_.GetFsDebugDump(writer.get(), path);
    return std::string(text, static_cast<size_t>(read(reader.get(), text, sizeof(text))));
  };
  root_.Write("/dev/logbuffer_tty16", "line 1\nline 2");
  EXPECT_EQ(dump("/dev/logbuffer_tty16"), ruler + "\nDebugfs:/dev/logbuffer_tty16\n" + ruler + "\nline 1\nline 2\n\n");
  EXPECT_EQ(dump("/dev/none"), ruler + "\nDebugfs:/dev/none\n" + ruler + "\nFail to read debugfs: /dev/none\n\n");
}

// A driver may add to its log as fast as it is read, and a dying service is to end.
TEST_F(HwControlTest, OfANodeWithoutAnEndADumpTakesAPart) {
  constexpr size_t kMost = size_t{4} << 20;
  root_.Write("/dev/logbuffer_tty16", std::string(kMost, 'x') + std::string(kMost, 'y'));
  const unique_fd file(memfd_create("dump", MFD_CLOEXEC));
  control_.GetFsDebugDump(file.get(), "/dev/logbuffer_tty16");
  std::string text;
  lseek(file.get(), 0, SEEK_SET);
  ASSERT_TRUE(::android::base::ReadFdToString(file.get(), &text));
  EXPECT_EQ(text.substr(text.find_last_of('x')), "x\n\n");
  EXPECT_EQ(std::ranges::count(text, 'x'), kMost);
  EXPECT_TRUE(log_.Has("GetFsDebugDump: /dev/logbuffer_tty16 has more than 4194304 bytes, the rest is left out"));

  root_.Write("/dev/logbuffer_tty16", std::string(kMost, 'x'));
  log_.Clear();
  control_.GetFsDebugDump(file.get(), "/dev/logbuffer_tty16");
  EXPECT_FALSE(log_.Has("left out"));
}

}  // namespace
}  // namespace android::hardware::bluetooth::hwcontrol
