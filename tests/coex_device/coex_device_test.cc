#include "coex_device/coex_device.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <termios.h>

#include <regex>

#include "debug_central/debug_central.h"
#include "os/kill_self.h"
#include "support/diagnostics.h"
#include "support/pty.h"
#include "support/test.h"

// A thread that is stuck for good is ended from its signal handler, at the price that TSan rightly names. Everything
// else is still checked.
extern "C" const char* __tsan_default_options() { return "report_signal_unsafe=0"; }

namespace android::hardware::bluetooth::coex_device {
namespace {

using namespace ::bthal::test;

const Bytes kBigHammer = {1, 0, 1, 0x42};
const Bytes kBigHammerWithAck = {1, 0, 1, 0x43};
const Bytes kAck = {0x02, 0x02, 0x04, 0x81};

const std::regex kDescriptor(":[0-9]+\\)");

std::atomic<int> g_deaths{0};

class CoexDeviceTest : public LoggedTest {
 protected:
  CoexDeviceTest() { PutDriver(driver_); }
  ~CoexDeviceTest() override {
    device_.DeviceClose();
    os::SetKillSelfForTest(nullptr);
  }

  void PutDriver(const Pty& driver) {
    const std::string node = root_.Below("/dev/wbrc");
    std::filesystem::remove(node);
    std::filesystem::create_symlink(driver.host_path(), node);
  }
  // Lets the service live on after its quiet death, counted.
  void Survive() {
    os::SetKillSelfForTest([] { ++g_deaths; });
  }
  bool IsOpen() { return CoexDevice::BtSend(&device_, kCoexPowerIsOn); }

  Pty driver_;
  CoexDevice& device_ = CoexDevice::Get();
};

TEST_F(CoexDeviceTest, SendsEveryMessageAsTheDriverKnowsIt) {
  EXPECT_FALSE(CoexDevice::BtSend(&device_, kCoexPowerIsOn));
  EXPECT_TRUE(log_.Has("Failed to write the message to coex device!!"));
  const int fd = device_.DeviceOpen([] {}, 0);
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(log_.Has("DeviceOpen return upon created fd: " + std::to_string(fd)));
  EXPECT_TRUE(log_.WaitFor("PollEventThread: Thread created fd = " + std::to_string(fd)));
  for (int code = 1; code <= 7; ++code) EXPECT_TRUE(CoexDevice::BtSend(&device_, code));
  EXPECT_EQ(driver_.Read(28),
            (Bytes{0x02, 0x02, 0x03, 0x41, 0x02, 0x02, 0x04, 0x81, 0x02, 0x02, 0x03, 0x45, 0x02, 0x02,
                   0x03, 0x46, 0x02, 0x02, 0x03, 0x47, 0x02, 0x02, 0x03, 0x48, 0x02, 0x02, 0x00, 0x00}));
  EXPECT_TRUE(log_.Has("BtSend msg: 0x81"));
  EXPECT_EQ(log_.Count("Unknown Message"), 1u);
  EXPECT_TRUE(log_.Has("BtSend msg: 0x0"));
  device_.DeviceClose();
  EXPECT_FALSE(IsOpen());
}

TEST_F(CoexDeviceTest, ABigHammerEndsInTheQuietRestart) {
  Survive();
  std::string steps;
  std::chrono::steady_clock::time_point handled;
  const auto handler = [&] {
    // The driver hears of the power that the handler takes away, and no acknowledgement before the handler is done.
    EXPECT_TRUE(CoexDevice::BtSend(&device_, kCoexPowerGoingOff));
    steps += "handler;";
    handled = std::chrono::steady_clock::now();
  };
  const Recorded recorded;
  ASSERT_GE(device_.DeviceOpen(handler, 20), 0);
  driver_.Write(kBigHammerWithAck);
  ASSERT_TRUE(WaitFor([] { return g_deaths == 1; }));
  EXPECT_EQ(steps, "handler;");
  EXPECT_EQ(driver_.Read(8), (Bytes{0x02, 0x02, 0x03, 0x45, 0x02, 0x02, 0x04, 0x81}));
  EXPECT_GE(std::chrono::steady_clock::now() - handled, std::chrono::milliseconds(20));
  EXPECT_TRUE(WaitFor([&] { return recorded.Text().ends_with("Thread done\n"); }));
  const std::string log = std::regex_replace(log_.Text({"coex_device"}), kDescriptor, ":N)");
  EXPECT_EQ(log.substr(log.find("\nI PollEventThread: POLLIN")), R"(
I PollEventThread: POLLIN
I ReadEvent Read wlbt driver event: 0x43
I BtSend msg: 0x45
I WriteEvent
I ReadEvent Sleep : 20 ms
I BtSend msg: 0x81
I WriteEvent
I DeviceClose
I ClosePollThread
I ClosePollThread: close socket fds_1
I ClosePollThread: close socket fds_0
I ClosePollThread: pthread_join
I DeviceClose: close(coex_fd_:N)
I PollEventThread: Thread done
)");
  EXPECT_EQ(recorded.Text(), R"(
ClosePollThread, close socket fds_1
ClosePollThread, close socket fds_0
restart bt due to receiving Big Hammer Event!
PollEventThread: Thread done
)");
  EXPECT_TRUE(log_.Has("error_code: (127), error_info: restart bt due to receiving Big Hammer Event!"));
  EXPECT_FALSE(IsOpen());

  // The other value: the same without the acknowledgement, which would come before the message sent below.
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  driver_.Write(kBigHammer);
  ASSERT_TRUE(WaitFor([] { return g_deaths == 2; }));
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  EXPECT_TRUE(CoexDevice::BtSend(&device_, kCoexPowerIsOn));
  EXPECT_EQ(driver_.Read(4), (Bytes{0x02, 0x02, 0x03, 0x48}));
}

TEST_F(CoexDeviceTest, ReplacesHandlerAndPauseOnAnOpenDevice) {
  Survive();
  std::atomic<int> first{0};
  std::atomic<int> second{0};
  const int fd = device_.DeviceOpen([&] { ++first; }, 60000);
  EXPECT_EQ(device_.DeviceOpen([&] { ++second; }, 0), fd);
  driver_.Write(kBigHammer);
  ASSERT_TRUE(WaitFor([] { return g_deaths == 1; }));
  EXPECT_EQ(log_.Count("PollEventThread: Thread created"), 1u);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST_F(CoexDeviceTest, IgnoresRubbishAndGoesOn) {
  Survive();
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  const struct {
    Bytes bytes;
    const char* log;
  } kRubbish[] = {{{2, 0, 1, 0x42}, "ReadEvent Got unexpected message"},
                  {{1, 0, 2, 0x42}, "ReadEvent received unknown event"},
                  {{1, 0, 1, 0x44}, "ReadEvent Read wlbt driver event: 0x44"},
                  {{1, 0, 1}, "ReadEvent Cannot read from wlbt driver: Message too long"}};
  for (const auto& rubbish : kRubbish) {
    driver_.Write(rubbish.bytes);
    EXPECT_TRUE(log_.WaitFor(rubbish.log));
  }
  EXPECT_EQ(g_deaths, 0);
  driver_.Write(kBigHammer);
  EXPECT_TRUE(WaitFor([] { return g_deaths == 1; }));
}

TEST_F(CoexDeviceTest, AbsentOrHungUpItIsClosedAndCanBeOpenedAgain) {
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  driver_.HangUp();
  EXPECT_TRUE(log_.WaitFor("PollEventThread: Thread done"));
  EXPECT_TRUE(log_.Has("PollEventThread: (POLLHUP | POLLERR)"));
  EXPECT_FALSE(IsOpen());

  std::filesystem::remove(root_.Below("/dev/wbrc"));  // what it leads to may be another's by now
  EXPECT_EQ(device_.DeviceOpen([] {}, 0), -1);
  EXPECT_TRUE(log_.Has("Failed to open the coex device!! Error: "));

  const Pty driver;
  PutDriver(driver);
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  EXPECT_TRUE(IsOpen());
  EXPECT_EQ(driver.Read(4), (Bytes{0x02, 0x02, 0x03, 0x48}));
}

TEST_F(CoexDeviceTest, WithoutASocketPairThereIsNoDevice) {
#ifdef BTHAL_SANITIZED
  GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at memory";
#endif
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const Recorded recorded;
  const unique_fd next(dup(STDERR_FILENO));
  rlimit few = before;
  few.rlim_cur = static_cast<rlim_t>(next.get()) + 2;  // the device gets the last one
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const int opened = device_.DeviceOpen([] {}, 0);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(opened, -1);
  EXPECT_TRUE(log_.Has("Failed to create socket pair!! Error: Too many open files"));
  EXPECT_EQ(recorded.Text(), "\nFailed to create socket pair\n");
  EXPECT_GE(device_.DeviceOpen([] {}, 0), 0) << "the next attempt";
}

// From here on the kernel refuses this thread, and those that it starts, a handler for SIGUSR1.
void RefuseUsr1Handlers() {
  std::array<sock_filter, 6> program = {{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_rt_sigaction, 0, 3),
                                         BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
                                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SIGUSR1, 0, 1),
                                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
  const sock_fprog filter{program.size(), program.data()};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0) << strerror(errno);
}

TEST_F(CoexDeviceTest, APollThreadThatCouldNotBeEndedByForceDoesNotStart) {
  std::thread([this] {
    RefuseUsr1Handlers();
    EXPECT_GE(device_.DeviceOpen([] {}, 0), 0);
  }).join();
  EXPECT_TRUE(log_.WaitFor("PollEventThread: Thread done"));
  EXPECT_TRUE(log_.Has("PollEventThread: Unable to set a SIGUSR1 signal handler"));
  EXPECT_FALSE(IsOpen());
}

TEST_F(CoexDeviceTest, AStuckPollThreadIsEndedByForce) {
  unique_fd reader, nobody_writes;
  ASSERT_TRUE(::android::base::Pipe(&reader, &nobody_writes));
  std::promise<void> stuck;
  const auto handler = [&] {
    stuck.set_value();
    char byte;
    [[maybe_unused]] const ssize_t count = read(reader.get(), &byte, 1);
    ADD_FAILURE() << "the handler went on";
  };
  // As a library of the process may do before it starts threads.
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
  ASSERT_GE(device_.DeviceOpen(handler, 0), 0);
  pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
  driver_.Write(kBigHammer);
  stuck.get_future().wait();
  const Recorded recorded;
  log_.Clear();

  device_.DeviceClose();  // comes back although the thread never would
  EXPECT_EQ(std::regex_replace(log_.Text({"coex_device"}), kDescriptor, ":N)"), R"(
I DeviceClose
I ClosePollThread
I ClosePollThread: close socket fds_1
I ClosePollThread: close socket fds_0
I ClosePollThread: pthread_join
E coex_close_timeout
I sigusr1_handler: pthread_exit(0)
I DeviceClose: close(coex_fd_:N)
)");
  EXPECT_EQ(recorded.Text(), R"(
ClosePollThread, close socket fds_1
ClosePollThread, close socket fds_0
coex_close_timeout: PollEventThread Stuck!
)");
  EXPECT_FALSE(IsOpen());
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  EXPECT_TRUE(IsOpen());
  EXPECT_EQ(driver_.Read(4), (Bytes{0x02, 0x02, 0x03, 0x48}));
}

TEST_F(CoexDeviceTest, ClosesAtOnceWhenNothingIsStuckAndLeavesNothingBehind) {
  device_.DeviceClose();  // nothing open: harmless
  const size_t before = CountEntries("/proc/self/fd");
  for (int i = 0; i < 50; ++i) {
    ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
    device_.DeviceClose();
  }
  EXPECT_TRUE(WaitFor([&] { return CountEntries("/proc/self/fd") == before; }));
  EXPECT_FALSE(log_.Has("coex_close_timeout"));
  EXPECT_EQ(log_.Count("PollEventThread: Thread done"), 50u);
}

TEST_F(CoexDeviceTest, AForeignSignalEndsNoThread) {
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  driver_.Write({1, 0, 1, 0x44});
  ASSERT_TRUE(log_.WaitFor("event: 0x44"));  // by now the handler is in place
  ASSERT_EQ(raise(SIGUSR1), 0);              // to this very thread
  EXPECT_FALSE(log_.Has("sigusr1_handler"));
  EXPECT_TRUE(IsOpen());
}

TEST_F(CoexDeviceTest, ADriverThatTakesNothingHoldsUpNobodyForLong) {
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  const unique_fd line(open(driver_.host_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(tcflow(line.get(), TCOOFF), 0);  // from here on a write waits
  const auto began = steady_clock::now();
  auto sent = std::async(std::launch::async, [this] { return IsOpen(); });
  ASSERT_TRUE(log_.WaitFor("WriteEvent"));
  device_.DeviceClose();
  EXPECT_FALSE(IsOpen());
  EXPECT_EQ(sent.wait_for(seconds(20)), std::future_status::ready);
  EXPECT_GE(steady_clock::now() - began, milliseconds(500)) << "one that is only slow gets its message";
  ASSERT_EQ(tcflow(line.get(), TCOON), 0);
  EXPECT_FALSE(sent.get());
  EXPECT_TRUE(log_.Has("/dev/wbrc has taken nothing for 500 ms: see whether the driver behind it still runs"));
  EXPECT_EQ(log_.Count("Failed to write the message to coex device!!"), 2u);
}

TEST_F(CoexDeviceTest, SendersAndClosersMayMeet) {
  std::atomic<bool> over{false};
  std::vector<std::thread> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([&] {
      while (!over) IsOpen();
    });
  }
  const Bytes last = {0x02, 0x02, 0x03, 0x46};
  std::thread reader([&] {
    while (driver_.Read(4) != last) continue;
  });
  for (int i = 0; i < 200; ++i) {
    ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
    driver_.Write({1, 0, 1, 0x44});
    device_.DeviceClose();
  }
  ASSERT_GE(device_.DeviceOpen([] {}, 0), 0);
  over = true;
  for (std::thread& sender : senders) sender.join();
  EXPECT_TRUE(CoexDevice::BtSend(&device_, kCoexPowerIsOff));
  reader.join();
}

}  // namespace
}  // namespace android::hardware::bluetooth::coex_device
