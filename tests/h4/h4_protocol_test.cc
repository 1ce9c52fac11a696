#include "h4/h4_protocol.h"

#include <random>

#include "h4/async_fd_watcher.h"
#include "hci_flow_control/hci_channel.h"
#include "os/kill_self.h"
#include "support/diagnostics.h"
#include "support/h4_stream.h"
#include "support/pty.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci {
namespace {

using namespace ::bthal::test;

using Received = std::vector<std::pair<uint8_t, Bytes>>;

// An H4Protocol whose packets are written down with the type by which they came.
struct Recorder {
  explicit Recorder(int fd = -1, bool with_thread = true)
      : h4(fd, {To(0x04), To(0x02), To(0x03), To(0x05), with_thread ? To(0x70) : nullptr},
           {.is_initialized = channel::IsInitialized,
            .is_ready = nullptr,
            .catch_exception = channel::CatchException}) {}

  HciPacketCallback To(uint8_t type) {
    return [this, type](const HciPacket& packet) { received.emplace_back(type, packet); };
  }

  void OnBytes(const Bytes& bytes) { h4.OnBytes(WithReadAhead(bytes).data(), bytes.size()); }

  Received received;
  H4Protocol h4;
};

// Lets the process outlive its own reports, to see what comes after them.
class Survivor {
 public:
  Survivor() {
    os::SetKillSelfForTest([] {});
    base::SetAborter([](const char*) {});
  }
  ~Survivor() {
    os::SetKillSelfForTest(nullptr);
    base::SetAborter(base::DefaultAborter);
  }
};

struct Pipe {
  explicit Pipe(int flags = 0) { CHECK(base::Pipe(&read_end, &write_end, O_CLOEXEC | flags)); }
  unique_fd read_end;
  unique_fd write_end;
};

TEST(H4ProtocolReceive, AnyChunkingYieldsTheSamePackets) {
  for (uint32_t seed = 0; seed < 12; ++seed) {
    std::mt19937 random(seed);
    Bytes stream;
    Received sent;
    for (int i = 0; i < 20; ++i) {
      const uint8_t type = bthal::test::kH4ReceivedTypes[random() % std::size(bthal::test::kH4ReceivedTypes)];
      sent.emplace_back(type, RandomPacket(type, random));
      AppendH4(stream, type, sent.back().second);
    }
    // A packet without payload at the very end comes out with the read after it only.
    AppendH4(stream, 0x04, MakePacket(0x04, 1, 0));
    sent.emplace_back(0x04, MakePacket(0x04, 1, 0));
    for (const size_t largest : {1, 2, 7, 64, 65, 200, 4096, 1 << 20}) {
      Recorder recorder;
      for (const Bytes& piece : RandomPieces(stream, largest, random)) recorder.OnBytes(piece);
      ASSERT_TRUE(recorder.received == sent) << "seed " << seed << ", pieces of up to " << largest;
    }
  }
}

TEST(H4ProtocolReceive, ReadsOnceAndKeepsTheRestForLater) {
  Pipe uart;
  Recorder recorder;
  const auto read = [&](const Bytes& bytes) {
    ASSERT_EQ(write(uart.write_end.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    recorder.h4.OnDataReady(uart.read_end.get());
  };
  read({0x04});  // only the type
  read({0x0E, 0x04, 0x01, 0x03});
  EXPECT_THAT(recorder.received, IsEmpty());
  read({0x0C, 0x00, 0x04, 0xFF, 0x01, 0x58, 0x02});  // a tail, a whole packet, a type
  EXPECT_THAT(recorder.received,
              ElementsAre(Pair(0x04, Bytes{0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00}), Pair(0x04, Bytes{0xFF, 0x01, 0x58})));
  read({0x40, 0x20, 0x01, 0x00, 0x99});
  EXPECT_THAT(recorder.received.back(), Pair(0x02, Bytes{0x40, 0x20, 0x01, 0x00, 0x99}));
}

TEST(H4ProtocolReceive, ThreadFramesWithoutConsumerAreDroppedInSync) {
  Recorder recorder(-1, false);
  Bytes stream;
  AppendH4(stream, 0x70, MakePacket(0x70, 5, 0));
  AppendH4(stream, 0x04, MakePacket(0x04, 2, 0));
  recorder.OnBytes(stream);
  for (const uint8_t byte : stream) recorder.OnBytes({byte});
  EXPECT_THAT(recorder.received, ElementsAre(Pair(0x04, MakePacket(0x04, 2, 0)), Pair(0x04, MakePacket(0x04, 2, 0))));
}

using H4ProtocolLoggedTest = LoggedTest;

class H4ProtocolBadType : public LoggedTest {
 protected:
  Survivor survivor_;
  Recorder recorder_;
};

TEST_F(H4ProtocolBadType, UnknownIsReportedAndTheRestNotTrusted) {
  recorder_.OnBytes({0x04, 0xFF, 0x01, 0x01, 0x06, 0x04, 0xFF, 0x01, 0x02});
  recorder_.OnBytes({0x04, 0xFF, 0x01, 0x03});
  EXPECT_THAT(recorder_.received, ElementsAre(Pair(0x04, Bytes{0xFF, 0x01, 0x01})));
  EXPECT_EQ(log_.Count("OnDataReady: Unimplemented Packet Type: 6 detected!"), 1u);
  EXPECT_TRUE(log_.Has("error_code: (131), error_info: Host Received Unimplemented Packet Type: 6, bytes_read: 5, "));
  EXPECT_THAT(DumpText(), HasSubstr("Host Received Unimplemented Packet Type: 6, bytes_read: 5, packet: "
                                    "06, 04, ff, 01, 02, 00, 00"));
}

// Who keeps the packets of a read hands them on at its end, and before anything ends the process.
TEST_F(H4ProtocolBadType, WhatWasKeptIsHandedOnBefore) {
  std::vector<std::string> calls;
  const auto packet = [&](const HciPacket&) { calls.emplace_back("packet"); };
  const H4Owner owner{.is_initialized = nullptr,
                      .is_ready = nullptr,
                      .catch_exception = [&](BqrErrorCode, const std::string&) { calls.emplace_back("report"); }};
  H4Protocol h4(
      -1, {.event_cb = packet, .more_to_come_cb = [&](bool more) { calls.emplace_back(more ? "more" : "no more"); }},
      owner);
  h4.OnBytes(WithReadAhead({4, 0x3E, 1, 1, 4, 0x3E, 1, 2, 4}).data(), 9);
  EXPECT_THAT(calls, ElementsAre("more", "packet", "packet", "no more"));
  calls.clear();
  h4.OnBytes(WithReadAhead({0x3E, 1, 3, 6}).data(), 4);
  EXPECT_THAT(calls, ElementsAre("more", "packet", "no more", "report", "no more"));
}

TEST_F(H4ProtocolBadType, ZeroIsReportedAndSkipped) {
  recorder_.OnBytes({0x00, 0x04, 0xFF, 0x01, 0x01});
  EXPECT_TRUE(log_.Has("OnDataReady: Unimplemented Packet Type: 0 detected!"));
  EXPECT_THAT(recorder_.received, ElementsAre(Pair(0x04, Bytes{0xFF, 0x01, 0x01})));
}

TEST_F(H4ProtocolBadType, ACommandIsFramedAndFatal) {
  recorder_.OnBytes({0x01, 0x03, 0x0C, 0x02, 0x55});
  EXPECT_TRUE(log_.Has("OnDataReady: Unimplemented Packet Type: 1 detected!"));
  EXPECT_FALSE(log_.Has("OnPacketReady"));
  recorder_.OnBytes({0x66});
  EXPECT_TRUE(log_.Has("OnPacketReady: Unimplemented packet type 1"));
  EXPECT_THAT(recorder_.received, IsEmpty());
}

TEST(H4ProtocolDeathTest, ReadErrorOnALiveTransportEndsTheProcess) {
  const auto receive = [] {
    TempRoot root;
    Pty pty;
    CHECK_EQ(symlink(pty.host_path().c_str(), root.Below("/dev/ttySAC16").c_str()), 0);
    const auto ignore = [](const HciPacket&) {};
    CHECK(channel::InitializeHciHandle({ignore, ignore, ignore, ignore, nullptr}) != nullptr);
    Recorder recorder;
    recorder.h4.OnDataReady(-1);
  };
  EXPECT_EXIT(receive(), KilledBySignal(SIGABRT), "OnDataReady: Read packet type error: Bad file descriptor");
}

// On the watcher's thread, as in life: the five-second pauses there end with the watcher.
TEST_F(H4ProtocolLoggedTest, EndOfFileAndEarlyErrorsAreRecordedAndWaitedOut) {
  for (const bool end_of_file : {true, false}) {
    Pipe uart;
    Recorder recorder;
    async::AsyncFdWatcher watcher;
    uart.write_end.reset();
    ASSERT_EQ(watcher.WatchFdForNonBlockingReads(uart.read_end.get(),
                                                 [&](int fd) { recorder.h4.OnDataReady(end_of_file ? fd : -1); }),
              0);
    ASSERT_TRUE(log_.WaitFor(end_of_file ? "OnDataReady: Unexpected EOF reading the packet type!"
                                         : "OnDataReady: read failed (Bad file descriptor), not ready to read!"));
    watcher.StopWatchingFileDescriptors();
  }
  EXPECT_EQ(log_.Count("Unexpected EOF"), 1u) << "the pause keeps it from spinning";
  const std::string record = DumpText();
  EXPECT_THAT(record, HasSubstr("OnDataReady: Unexpected EOF reading the packet type!"));
  EXPECT_THAT(record, HasSubstr("OnDataReady: read failed (Bad file descriptor), not reay to read!"));
}

TEST(H4ProtocolSend, TypeAndPacketLeaveTogether) {
  Pipe uart(O_DIRECT);  // keeps the writes apart
  Recorder recorder(uart.write_end.get());
  const Bytes reset = {0x03, 0x0C, 0x00};
  EXPECT_EQ(recorder.h4.Send(0x01, reset.data(), reset.size()), 4u);
  EXPECT_EQ(recorder.h4.Send(0x04, nullptr, 0), 1u);
  EXPECT_EQ(recorder.h4.Send(0x01, reset.data(), SIZE_MAX), 0u);
  Bytes written(16);
  ASSERT_EQ(read(uart.read_end.get(), written.data(), written.size()), 4);
  written.resize(4);
  EXPECT_EQ(written, (Bytes{0x01, 0x03, 0x0C, 0x00}));
}

TEST_F(H4ProtocolLoggedTest, ShortWritesAreContinued) {
  Pipe uart(O_NONBLOCK);
  ASSERT_EQ(fcntl(uart.write_end.get(), F_SETPIPE_SZ, 65536), 65536);
  Recorder recorder(uart.write_end.get());
  const Bytes packet = MakePacket(0x02, 65535, 7);
  Bytes arrived;
  // Nothing is taken out before the port was full once; from then on the writer spins until there is room.
  std::thread controller([&] {
    log_.WaitFor("Send: 65536/65540 bytes written - retrying remaining 4 bytes");
    while (arrived.size() < packet.size() + 1) {
      uint8_t piece[4096];
      const ssize_t n = read(uart.read_end.get(), piece, sizeof(piece));
      if (n > 0) arrived.insert(arrived.end(), piece, piece + n);
    }
  });
  EXPECT_EQ(recorder.h4.Send(0x02, packet.data(), packet.size()), packet.size() + 1);
  controller.join();
  EXPECT_EQ(arrived[0], 0x02);
  EXPECT_TRUE(std::equal(packet.begin(), packet.end(), arrived.begin() + 1));
  EXPECT_THAT(DumpText(), HasSubstr("Send: 65536/65540 bytes written - retrying remaining 4 bytes"));
}

TEST_F(H4ProtocolLoggedTest, WriteErrorIsLoggedRecordedAndReturned) {
  signal(SIGPIPE, SIG_IGN);
  Pipe uart;
  uart.read_end.reset();
  Recorder recorder(uart.write_end.get());
  const Bytes reset = {0x03, 0x0C, 0x00};
  EXPECT_EQ(recorder.h4.Send(0x01, reset.data(), reset.size()), 0u);
  EXPECT_EQ(log_.Count("Send error writing to UART (Broken pipe)"), 1u);
  EXPECT_THAT(DumpText(), HasSubstr("Send: error writing to UART (Broken pipe)"));
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci
