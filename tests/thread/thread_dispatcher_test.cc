#include "thread/thread_dispatcher.h"

#include <grp.h>
#include <sys/resource.h>

#include <regex>
#include <semaphore>

#include "conf/conf.h"
#include "hci_flow_control/hci_channel.h"
#include "os/device_path.h"
#include "os/kill_self.h"
#include "support/child_process.h"
#include "support/pty.h"
#include "support/test.h"
#include "support/thread_client.h"
#include "support/unix_socket.h"

namespace android::hardware::bluetooth::hci {
namespace {

using namespace ::bthal::test;

HciPacket FromController(const Bytes& payload) {
  return Joined({{0, 0, static_cast<uint8_t>(payload.size()), static_cast<uint8_t>(payload.size() >> 8)}, payload});
}

class ThreadDispatcherTest : public LoggedTest, public ::testing::WithParamInterface<SocketMode> {
 protected:
  ThreadDispatcherTest() { std::filesystem::create_directories(os::DevicePath("/data/vendor/bluetooth")); }
  ~ThreadDispatcherTest() override { channel::Deinitialize(); }

  // A flow control over the line.
  HciFlowControl* OpenTransport() {
    std::filesystem::create_symlink(line_.host_path(), root_.Below("/dev/ttyTest"));
    conf::Config::GetInstance().uart_port = "/dev/ttyTest";
    const auto ignore = [](const HciPacket&) {};
    const auto on_frame = [this](const HciPacket& frame) { dispatcher_.SendThreadPacket(frame); };
    return channel::InitializeHciHandle({ignore, ignore, ignore, ignore, on_frame});
  }

  static std::string SocketPath() { return os::DevicePath(kThreadDispatcherSocketPath); }
  static ThreadClient Connect(SocketMode mode = SocketMode::kPacket) {
    return ThreadClient(os::DevicePath(""), static_cast<int>(mode));
  }
  // Enabled, with a client that has been accepted.
  ThreadClient Serve(HciFlowControl* flow) {
    EXPECT_TRUE(dispatcher_.OnBluetoothEnabled(flow));
    ThreadClient client = Connect();
    EXPECT_TRUE(AcceptedClients(1));
    return client;
  }
  bool AcceptedClients(size_t count) {
    return WaitFor([&] { return log_.Count("Accepted new client successfully.") == count; });
  }

  Pty line_;
  ThreadDispatcher dispatcher_;
};

TEST_F(ThreadDispatcherTest, FramesGoBothWaysOverH4) {
  const ThreadClient client = Serve(OpenTransport());
  EXPECT_TRUE(client.Send({0x80, 0x01, 0x05}));  // nearly the reset request
  EXPECT_THAT(line_.Read(8), ElementsAre(0x70, 0x00, 0x00, 0x03, 0x00, 0x80, 0x01, 0x05));
  line_.Write({0x70, 0x00, 0x00, 0x03, 0x00, 0xAA, 0xBB, 0xCC});
  EXPECT_THAT(client.Receive(), ElementsAre(0xAA, 0xBB, 0xCC));

  const Bytes largest(8192, 0x5A);
  EXPECT_TRUE(client.Send(Bytes(8193, 0x5A)));  // not cut to what a frame may hold
  EXPECT_TRUE(client.Send(largest));
  const Bytes wire = line_.Read(5 + largest.size());
  ASSERT_EQ(wire.size(), 5 + largest.size());
  EXPECT_THAT(Bytes(wire.begin(), wire.begin() + 5), ElementsAre(0x70, 0x00, 0x00, 0x00, 0x20));
  EXPECT_EQ(Bytes(wire.begin() + 5, wire.end()), largest);
  EXPECT_TRUE(log_.Has("A frame of 8193 bytes is refused: at most 8192 are taken."));
  EXPECT_EQ(ThreadDispatcher::DroppedFrames(), 1u);
  EXPECT_TRUE(client.Send({0x42}));
  EXPECT_THAT(line_.Read(6), ElementsAre(0x70, 0x00, 0x00, 0x01, 0x00, 0x42)) << "the refused frame came after all";
}

TEST_F(ThreadDispatcherTest, ASessionIsLoggedStepByStep) {
  const ThreadClient client = Serve(nullptr);
  EXPECT_TRUE(client.Send({0x01}));
  EXPECT_TRUE(WaitFor([&] { return log_.Count("Server is idle...") == 3; }));
  dispatcher_.SendThreadPacket(FromController({0x02}));
  EXPECT_THAT(client.Receive(), ElementsAre(0x02));
  EXPECT_TRUE(dispatcher_.OnBluetoothDisabled());
  // Not every machine has the socket file's group.
  EXPECT_EQ(std::regex_replace(log_.Text(), std::regex("I GiveToSystemGroup[^\\n]*\\n"), ""), R"(
I OnBluetoothEnabled: [bthal.thread_dispatcher]
I ThreadDispatcherRoutine: [bthal.thread_dispatcher] Dispatcher is open.
D ReceiveFromClients: [bthal.thread_dispatcher] Server is idle...
I ReceiveFromClients: [bthal.thread_dispatcher] Server receives client connect request...
I AcceptClient: [bthal.thread_dispatcher] Accepted new client successfully.
D ReceiveFromClients: [bthal.thread_dispatcher] Server is idle...
E OnThreadPacketReady: [bthal.thread_dispatcher] Unable to send Thread frames to the controller.
D ReceiveFromClients: [bthal.thread_dispatcher] Server is idle...
D SendThreadPacket: [bthal.thread_dispatcher] Sending to Thread HAL.
I ReceiveFromClients: [bthal.thread_dispatcher] Server is terminated by notification...
I ThreadDispatcherRoutine: [bthal.thread_dispatcher] Dispatcher is closed.
)");
}

TEST_F(ThreadDispatcherTest, FramesThatContradictTheirLengthAreNamed) {
  const ThreadClient client = Serve(nullptr);
  dispatcher_.SendThreadPacket({0x00, 0x00, 0x05, 0x00, 0xAA, 0xBB, 0xCC});
  EXPECT_TRUE(log_.Has("ExtractFromVendorPacket: [bthal.thread_dispatcher] Data size does not match with the actual "));
  EXPECT_TRUE(client.Receive().empty());
  dispatcher_.SendThreadPacket({0x00, 0x00, 0x00});
  EXPECT_TRUE(log_.Has("ExtractFromVendorPacket: [bthal.thread_dispatcher] Invalid vendor data format."));
  dispatcher_.SendThreadPacket({});
  EXPECT_TRUE(log_.Has("SendThreadPacket: [bthal.thread_dispatcher] Data is empty."));
}

TEST_F(ThreadDispatcherTest, WithoutTransportClientOrStartFramesAreDroppedWithALine) {
  dispatcher_.SendThreadPacket(FromController({0x01}));
  EXPECT_TRUE(log_.Has("SendThreadPacket: [bthal.thread_dispatcher] Dispatcher is not running."));
  EXPECT_FALSE(dispatcher_.OnBluetoothDisabled());
  EXPECT_TRUE(log_.Has("OnBluetoothDisabled: [bthal.thread_dispatcher] Thread Dispatcher is off, no need to close."));

  ASSERT_TRUE(dispatcher_.OnBluetoothEnabled(nullptr));
  EXPECT_FALSE(dispatcher_.OnBluetoothEnabled(nullptr));
  EXPECT_TRUE(log_.Has("OnBluetoothEnabled: [bthal.thread_dispatcher] Thread Dispatcher is started, close first and "));
  dispatcher_.SendThreadPacket(FromController({0x01}));
  EXPECT_TRUE(log_.Has("SendThreadPacket: [bthal.thread_dispatcher] Thread HAL is not connected."));
  const ThreadClient client = Connect();
  EXPECT_TRUE(client.Send({0x01}));
  EXPECT_TRUE(log_.WaitFor("OnThreadPacketReady: [bthal.thread_dispatcher] Unable to send Thread frames to the contr"));
}

TEST_F(ThreadDispatcherTest, FirstClientKeepsTheLine) {
  const ThreadClient first = Serve(OpenTransport());
  const ThreadClient second = Connect();
  EXPECT_TRUE(second.Receive().empty());  // its end
  EXPECT_TRUE(log_.Has("AcceptClient: [bthal.thread_dispatcher] Already connected with another client."));
  EXPECT_TRUE(first.Send({0x42}));
  EXPECT_THAT(line_.Read(6), ElementsAre(0x70, 0x00, 0x00, 0x01, 0x00, 0x42));
}

TEST_F(ThreadDispatcherTest, DeadClientMakesRoomForTheNext) {
  // The client is a process of its own, forked before there are threads, and is killed once connected.
  ChildProcess process([] {
    const ThreadClient client = Connect();
    return client.Send({0x01}) ? pause() : 1;
  });
  ASSERT_TRUE(dispatcher_.OnBluetoothEnabled(OpenTransport()));
  EXPECT_THAT(line_.Read(6), ElementsAre(0x70, 0x00, 0x00, 0x01, 0x00, 0x01));
  process.Kill();
  EXPECT_TRUE(log_.WaitFor("Server receives from client failed..."));
  const ThreadClient next = Connect();
  ASSERT_TRUE(AcceptedClients(2));
  EXPECT_TRUE(next.Send({0x02}));
  EXPECT_THAT(line_.Read(6), ElementsAre(0x70, 0x00, 0x00, 0x01, 0x00, 0x02));
}

TEST_P(ThreadDispatcherTest, ClientThatStopsReadingCostsItsFramesAndNothingElse) {
  ThreadDispatcher dispatcher(GetParam());
  ASSERT_TRUE(dispatcher.OnBluetoothEnabled(nullptr));
  const ThreadClient client = Connect(GetParam());
  ASSERT_TRUE(AcceptedClients(1));
  constexpr uint16_t kFrames = 3000;
  const auto frame = [](uint16_t number) {
    Bytes payload(1000, 0x77);
    payload[0] = static_cast<uint8_t>(number >> 8);
    payload[1] = static_cast<uint8_t>(number);
    return payload;
  };
  for (uint16_t i = 0; i < kFrames; ++i) dispatcher.SendThreadPacket(FromController(frame(i)));  // never blocks
  const uint64_t dropped = dispatcher.DroppedFrames();
  EXPECT_GT(dropped, 0u);
  EXPECT_LT(dropped, kFrames);
  EXPECT_TRUE(log_.HasThrottled(
      "PrintSocketErr: [bthal.socket_processor] Client connection is close or send buffer is full, dir: 0"));
  // What the socket took arrives whole and in order, and the line is good again.
  for (uint16_t i = 0; i < kFrames - dropped; ++i) ASSERT_EQ(client.Receive(), frame(i)) << i;
  dispatcher.SendThreadPacket(FromController(frame(kFrames)));
  EXPECT_EQ(client.Receive(), frame(kFrames));
}

TEST_P(ThreadDispatcherTest, StartStopAndRestartLeaveNothingBehind) {
  HciFlowControl* flow = OpenTransport();
  ThreadDispatcher dispatcher(GetParam());
  // The transport has a thread that comes with its first write.
  constexpr uint8_t kReset[] = {0x03, 0x0C, 0x00};
  flow->SendNoAck(0x01, kReset, sizeof(kReset));
  ASSERT_EQ(line_.Read(4).size(), 4u);
  const size_t threads = CountEntries("/proc/self/task"), descriptors = CountEntries("/proc/self/fd");
  for (size_t round = 1; round <= 3; ++round) {
    ASSERT_TRUE(dispatcher.OnBluetoothEnabled(flow));
    const ThreadClient client = Connect(GetParam());
    ASSERT_TRUE(AcceptedClients(round));
    EXPECT_TRUE(client.Send({0x07}));
    EXPECT_THAT(line_.Read(6), ElementsAre(0x70, 0x00, 0x00, 0x01, 0x00, 0x07));
    if (GetParam() == SocketMode::kStream) client.SendRaw({0x40, 0x09});  // half a length: must not hold up the stop
    EXPECT_TRUE(dispatcher.OnBluetoothDisabled());
    EXPECT_TRUE(client.Receive().empty());
    EXPECT_FALSE(std::filesystem::exists(SocketPath()));
  }
  EXPECT_TRUE(WaitFor([&] { return CountEntries("/proc/self/task") == threads; }));
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
}

INSTANTIATE_TEST_SUITE_P(Modes, ThreadDispatcherTest, ::testing::Values(SocketMode::kPacket, SocketMode::kStream),
                         [](const auto& mode) { return mode.param == SocketMode::kPacket ? "Packet" : "Stream"; });

TEST_F(ThreadDispatcherTest, StreamThatLosesItsFramingCostsTheConnection) {
  ThreadDispatcher dispatcher(SocketMode::kStream);
  ASSERT_TRUE(dispatcher.OnBluetoothEnabled(OpenTransport()));
  const std::pair<Bytes, const char*> kFaults[] = {{{0x41}, "Invalid header type."},
                                                   {{0x40, 0x00, 0x00}, "Invalid payload size."}};
  for (const auto& [bytes, told] : kFaults) {
    const ThreadClient client = Connect(SocketMode::kStream);
    EXPECT_TRUE(client.SendRaw(bytes));
    EXPECT_TRUE(client.Receive().empty());
    EXPECT_TRUE(log_.Has(std::string("RecvStream: [bthal.socket_processor] ") + told));
    EXPECT_TRUE(log_.Has("ReceiveFromClients: [bthal.thread_dispatcher] Server receives from client failed..."));
  }
  {
    const ThreadClient client = Connect(SocketMode::kStream);
    EXPECT_TRUE(client.SendRaw({0x40, 0x05, 0x00, 0x01}));  // leaves in the middle of a frame
  }
  EXPECT_TRUE(
      log_.WaitFor("PrintSocketErr: [bthal.socket_processor] Client connection is close or send buffer is full, "
                   "dir: 1"));
  const ThreadClient client = Connect(SocketMode::kStream);
  ASSERT_TRUE(AcceptedClients(4));
  for (const uint8_t piece : {0x40, 0x02, 0x00, 0x0A, 0x0B}) client.SendRaw({piece});
  EXPECT_THAT(line_.Read(7), ElementsAre(0x70, 0x00, 0x00, 0x02, 0x00, 0x0A, 0x0B));
}

// A stop from inside a frame of the client cannot wait for the thread that it stops; the next start can, and does not
// bring it to life again.
TEST_F(ThreadDispatcherTest, ADispatcherStoppedOnItsOwnThreadStartsAgain) {
  static ThreadDispatcher* dispatcher = nullptr;
  static std::binary_semaphore stopped{0};
  static std::binary_semaphore restarting{0};
  dispatcher = &dispatcher_;
  os::SetKillSelfForTest([] {  // what the reset request comes to, on the dispatcher's thread
    EXPECT_TRUE(dispatcher->OnBluetoothDisabled());
    EXPECT_FALSE(dispatcher->OnBluetoothEnabled(nullptr)) << "by the thread that has still to end";
    stopped.release();
    restarting.acquire();
  });
  HciFlowControl* flow = OpenTransport();
  ASSERT_TRUE(dispatcher_.OnBluetoothEnabled(flow));
  EXPECT_TRUE(Connect().Send({0x80, 0x01, 0x04}));
  stopped.acquire();
  EXPECT_TRUE(log_.Has("OnThreadPacketReady: [bthal.thread_dispatcher] Hardware reset from Thread HAL."));
  auto started = std::async(std::launch::async, [&] { return dispatcher_.OnBluetoothEnabled(flow); });
  EXPECT_TRUE(WaitFor([&] { return log_.Count("OnBluetoothEnabled: [bthal.thread_dispatcher]") == 4; }));
  restarting.release();
  ASSERT_TRUE(started.get());
  const ThreadClient client = Connect();
  EXPECT_TRUE(client.Send({0x42}));
  EXPECT_THAT(line_.Read(6), ElementsAre(0x70, 0x00, 0x00, 0x01, 0x00, 0x42));
  os::SetKillSelfForTest(nullptr);
}

TEST_F(ThreadDispatcherTest, StreamFrameThatGoesOutInPartEndsTheConversation) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const unique_fd client(ends[1]);
  constexpr int kSmall = 4096;
  ASSERT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &kSmall, sizeof(kSmall)), 0);
  SocketProcessor processor(SocketMode::kStream, kThreadDispatcherSocketPath, 1, [](const Bytes&) {});
  processor.SetClientSocket(ends[0]);
  const Bytes frame(65535, 0x33);
  EXPECT_FALSE(processor.Send(frame));
  EXPECT_EQ(processor.DroppedFrames(), 1u);
  Bytes all(frame.size() + 3);
  const ssize_t part = recv(client.get(), all.data(), all.size(), MSG_DONTWAIT);
  EXPECT_GT(part, 3);
  EXPECT_LT(part, static_cast<ssize_t>(all.size()));
  ssize_t rest = part;
  while (rest > 0) rest = recv(client.get(), all.data(), all.size(), MSG_DONTWAIT);
  EXPECT_EQ(rest, 0) << "not the end";
}

TEST_F(ThreadDispatcherTest, SocketFileHasItsModeAndGroupAlsoUnderALongRoot) {
  const std::string long_root = root_.path() + "/" + std::string(120, 'r');
  setenv("BTHAL_ROOT", long_root.c_str(), 1);
  std::filesystem::create_directories(long_root + "/data/vendor/bluetooth");
  const ThreadClient client = Serve(nullptr);
  struct stat status {};
  ASSERT_EQ(stat(SocketPath().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0664u);
  if (const group* system = getgrnam("system")) {
    EXPECT_EQ(status.st_gid, system->gr_gid);
  } else {
    EXPECT_TRUE(log_.Has("No group \"system\" here"));
  }
}

TEST_F(ThreadDispatcherTest, WithoutDescriptorsItNeitherStartsNorAccepts) {
#ifdef BTHAL_SANITIZED
  GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at memory";
#endif
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_FALSE(dispatcher_.OnBluetoothEnabled(nullptr));
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_TRUE(log_.Has("OnBluetoothEnabled: [bthal.thread_dispatcher] Thread Dispatcher starting process is failed."));
  EXPECT_FALSE(dispatcher_.OnBluetoothDisabled());
  EXPECT_TRUE(dispatcher_.OnBluetoothEnabled(nullptr)) << "the next attempt";

  // And a client waits until there are descriptors again.
  const unique_fd client(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  ASSERT_TRUE(WaitFor([&] { return log_.Has("Server is idle..."); }));
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_TRUE(ConnectAt(client, SocketPath()));
  EXPECT_TRUE(log_.WaitFor("AcceptClient: [bthal.thread_dispatcher] Unable to accept for clients."));
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_TRUE(AcceptedClients(1));
}

TEST_F(ThreadDispatcherTest, SocketThatCannotBeBoundLeavesADispatcherWithoutClients) {
  std::filesystem::remove_all(root_.path() + "/data");
  ASSERT_TRUE(dispatcher_.OnBluetoothEnabled(nullptr));
  EXPECT_TRUE(log_.WaitFor("BindSocket: [bthal.socket_processor] Unable to bind the socket."));
  EXPECT_TRUE(log_.WaitFor("ThreadDispatcherRoutine: [bthal.thread_dispatcher] Dispatcher is closed."));
  EXPECT_TRUE(dispatcher_.OnBluetoothDisabled());
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci
