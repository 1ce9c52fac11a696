// The virtual board's traffic: loopback, back-pressure, Thread frames, the air around it, an emulator behind it.
#include "support/board_host.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal::test {
namespace {

constexpr uint16_t kWriteLoopback = 0x1802;

class BoardTrafficTest : public BoardTest {
 protected:
  void EnterLoopback() {
    host_.Send(kWriteLoopback, {1});
    for (int link = 0; link < 4; ++link) {
      const Packet event = host_.Read();  // Connection Complete: one ACL and three SCO handles
      ASSERT_EQ(0x03, event.at(1));
      ASSERT_EQ(link == 0 ? 1 : 0, event.at(12));
    }
    ASSERT_EQ(Complete(kWriteLoopback, {0}), host_.Read());
  }
};

// The headset's link, and beside it one for its voice.
TEST_F(BoardTrafficTest, SynchronousFlowControlDecidesWhoseCreditsAreToldOf) {
  Board& board = Play();
  EXPECT_EQ(Status(0x0405, 0), host_.Command(0x0405, {4, 0, 0, 0x5A, 0x22, 0, 0x18, 0xCC, 2, 0, 0, 0, 1}));
  const uint8_t link = host_.Read().at(4);
  EXPECT_EQ(Status(0x0428, 0),
            host_.Command(0x0428, {link, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 10, 0, 0x60, 0, 1, 7, 0}));
  const Packet connected = host_.Read();
  ASSERT_EQ((Packet{0x04, 0x2C, 17, 0}), Packet(connected.begin(), connected.begin() + 4));
  const uint8_t voice = connected[4];
  const Packet data{0x03, voice, 0, 2, 0x55, 0xAA};
  for (const uint8_t on : {0, 1, 0}) {
    EXPECT_EQ(Complete(0x0C2F, {0}), host_.Command(0x0C2F, {on}));
    EXPECT_EQ(Complete(0x0C2E, {0, on}), host_.Command(0x0C2E));
    host_.Write(data);
    if (on != 0) {
      EXPECT_EQ((Packet{0x04, 0x13, 5, 1, voice, 0, 1, 0}), host_.Read());
    }
    EXPECT_EQ(Complete(kReadBdAddr, {0, 3, 2, 1, 0x5A, 0x22, 0x22}), host_.Command(kReadBdAddr)) << "nothing before it";
  }
  EXPECT_EQ(Status(0x0406, 0), host_.Command(0x0406, {link, 0, 0x13}));
  for (const uint8_t ended : {voice, link}) EXPECT_EQ((Packet{0x04, 0x05, 4, 0, ended, 0, 0x16}), host_.Read());
  host_.Write(data);
  ASSERT_TRUE(Await(board, WireEvent::kProtocolError));

  EXPECT_EQ(Complete(0x0C2F, {0}), host_.Command(0x0C2F, {1}));
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  host_.Write({0x03, 2, 0, 1, 0x77});
  EXPECT_EQ((Packet{0x03, 2, 0, 1, 0x77}), host_.Read());
  EXPECT_EQ((Packet{0x04, 0x13, 5, 1, 2, 0, 1, 0}), host_.Read());
}

TEST_F(BoardTrafficTest, TheLongestCommandComesBackCutToAnEvent) {
  Play();
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  const Packet command = CommandPacket(0xFC4C, Packet(255, 0x5A));
  host_.Write(command);
  const Packet event = host_.Read();
  ASSERT_EQ(3u + 255u, event.size());
  EXPECT_TRUE(std::equal(event.begin() + 3, event.end(), command.begin() + 1));
}

// The host writes and does not read. The board must go on taking its bytes, or both would wait for ever.
TEST_F(BoardTrafficTest, TakesBytesFromAHostThatDoesNotRead) {
  Board& board = Play();
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  constexpr uint32_t kPackets = 600;
  Packet big{0x02, 0x01, 0x00, 0xFD, 0x03};
  big.resize(5 + 1021, 0x77);
  for (uint32_t i = 0; i < kPackets; ++i) host_.Write(big);
  EXPECT_TRUE(WaitFor([&] { return board.WaitingForHost() > size_t{300} * 1024; }));
  uint32_t back = 0;
  while (back < kPackets) {
    const Packet packet = host_.Read();
    ASSERT_FALSE(packet.empty()) << back;
    if (packet[0] != 0x02) continue;
    ASSERT_EQ(big, packet);
    ++back;
  }
}

// The wake line is low for far longer than it takes to fall asleep, but there is still something to say.
TEST_F(BoardTrafficTest, DoesNotSleepWhileItSpeaks) {
  constexpr auto kFallsAsleep = std::chrono::milliseconds(1);
  sim::BoardOptions options = SmallBoard(root_);
  options.falls_asleep_after = kFallsAsleep;
  Board& board = Start(options);
  host_.PowerOn();
  host_.WriteNode("/proc/bluetooth/sleep/lpm", "1");
  host_.WriteNode("/proc/bluetooth/sleep/btwrite", "1");
  EXPECT_EQ(Complete(kSetSleepMode, {0}), host_.Command(kSetSleepMode, kSleepParameters));
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  const auto write = [&](size_t payload) {
    Packet packet{0x02, 0x01, 0x00, static_cast<uint8_t>(payload), static_cast<uint8_t>(payload >> 8)};
    packet.resize(5 + payload, 0x77);
    host_.Write(packet);
  };
  for (int i = 0; i < 100; ++i) write(1021);
  ASSERT_TRUE(WaitFor([&] { return board.WaitingForHost() > size_t{50} * 1024; }));
  host_.WriteNode("/proc/bluetooth/sleep/btwrite", "0");
  const size_t before = board.WaitingForHost();
  const auto fell = steady_clock::now();
  while (steady_clock::now() < fell + 20 * kFallsAsleep) write(1);
  EXPECT_TRUE(WaitFor([&] { return board.WaitingForHost() > before; }));
  EXPECT_EQ(0u, Count(board, WireEvent::kLostBytes));
}

TEST_F(BoardTrafficTest, NoticesASecondCommandBeforeTheAnswer) {
  Board& board = Play();
  host_.Write(Joined({CommandPacket(kReset), CommandPacket(0x1009)}));
  EXPECT_EQ(Complete(kReset, {0}), host_.Read());
  EXPECT_EQ(0x09, host_.Read().at(4));
  EXPECT_THAT(Texts(board, WireEvent::kProtocolError), ElementsAre("command 0x1009 comes before the answer to 0x0C03"));
  // The debug request is never answered and takes no credit.
  host_.Send(0xFD5B);
  for (const uint8_t last : {0, 0, 1}) EXPECT_EQ(last, host_.Read().at(6));
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  EXPECT_EQ(1u, Count(board, WireEvent::kProtocolError));
}

// Only a lower bound: the wire cannot be faster than its bit rate.
TEST_F(BoardTrafficTest, PacedBytesTakeTheirTimeOnTheWire) {
  sim::BoardOptions options = SmallBoard(root_);
  options.pace = true;
  Play(options);
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  Packet data{0x02, 0x01, 0x00, 0xFD, 0x03};
  data.resize(5 + 1021);
  const auto begin = std::chrono::steady_clock::now();
  host_.Write(data);
  EXPECT_EQ(data, host_.Read());
  const auto wire = std::chrono::microseconds(2 * data.size() * 10 * 1'000'000 / 115200);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, wire);
  EXPECT_EQ(0x13, host_.Read().at(1));
}

// An emulator that answers every command in its own way, and grants more than one credit.
class Emulator {
 public:
  explicit Emulator(const std::string& path) : listener_(ListenAt(path)) {}

  void Accept() { peer_.reset(accept(listener_.get(), nullptr, nullptr)); }
  // One read gives one whole packet.
  Packet Read() const {
    Packet packet(2048);
    const ssize_t count = recv(peer_.get(), packet.data(), packet.size(), 0);
    packet.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return packet;
  }
  void Write(const Packet& packet) const { (void)!send(peer_.get(), packet.data(), packet.size(), MSG_NOSIGNAL); }
  void HangUp() { peer_.reset(); }

 private:
  const unique_fd listener_;
  unique_fd peer_;
};

constexpr uint16_t kReadAddress = 0x1009;
constexpr uint16_t kWriteAddress = 0xFC01;
const Packet kAddressTold{0, 0x42, 0, 0, 1, 0xAA, 0};  // status, address

TEST_F(BoardTrafficTest, AnEmulatorAnswersTheStandardCommandsAndLendsItsAddress) {
  Emulator emulator(root_.Below("/emulator"));
  sim::BoardOptions options = SmallBoard(root_);
  options.backend = "unix:" + root_.Below("/emulator");
  std::thread first([&] {
    emulator.Accept();
    EXPECT_EQ(CommandPacket(kReadAddress), emulator.Read());
    emulator.Write(Complete(kReadAddress, kAddressTold));
  });
  root_.Write("/proc/device-tree/chosen/config/bt_addr", "AA:BB:CC:11:22:33\n");
  Board& board = Start(options);
  first.join();
  EXPECT_EQ("00:AA:01:00:00:42\n", root_.Read("/proc/device-tree/chosen/config/bt_addr")) << "which the service writes";
  host_.PowerOn();
  EXPECT_EQ(Complete(kWriteAddress, {0}), host_.Command(kWriteAddress, {0x42, 0, 0, 1, 0xAA, 0}));
  EXPECT_EQ(Complete(kWriteAddress, {0x0C}), host_.Command(kWriteAddress, {0x33, 0x22, 0x11, 0xCC, 0xBB, 0xAA}));
  EXPECT_EQ(Complete(kReadAddress, kAddressTold), host_.Command(kReadAddress));
  EXPECT_EQ(188, host_.Command(0xFC79).at(7)) << "the maker's commands stay ours";
  host_.Send(kReset);
  EXPECT_EQ(CommandPacket(kReset), emulator.Read());
  // In two pieces, with five credits, and an event of its own behind it.
  emulator.Write({0x04, 0x0E, 0x04});
  emulator.Write({0x05, 0x03, 0x0C, 0x00, 0x04, 0x10, 0x01, 0x42});
  EXPECT_EQ(Complete(kReset, {0}), host_.Read());
  EXPECT_EQ((Packet{0x04, 0x10, 0x01, 0x42}), host_.Read());
  host_.Write({0x02, 0x40, 0x00, 0x01, 0x00, 0x55});
  EXPECT_EQ((Packet{0x02, 0x40, 0x00, 0x01, 0x00, 0x55}), emulator.Read());
  emulator.HangUp();
  ASSERT_TRUE(Await(board, WireEvent::kProtocolError, 2));
  EXPECT_THAT(Texts(board, WireEvent::kProtocolError),
              ElementsAre(HasSubstr("cannot be changed to AA:BB:CC:11:22:33"), HasSubstr("it hung up")));
  EXPECT_EQ(Complete(kReset, {0x03}), host_.Command(kReset)) << "Hardware Failure";
  EXPECT_EQ(188, host_.Command(0xFC79).at(7));
}

}  // namespace
}  // namespace bthal::test
