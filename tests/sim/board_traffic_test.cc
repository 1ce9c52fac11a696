// The virtual board's traffic: loopback, back-pressure, Thread frames, the air around it, an emulator behind it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <map>
#include <thread>

#include "sim/board.h"
#include "support/board_host.h"
#include "support/wait_for.h"

namespace bthal::test {
namespace {

using sim::Board;
using sim::WireEvent;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint16_t kReset = 0x0C03;
constexpr uint16_t kWriteLoopback = 0x1802;
constexpr int kSoon = 100;

class BoardTrafficTest : public testing::Test {
 protected:
  Board& Start(sim::BoardOptions options) {
    board_ = std::make_unique<Board>(std::move(options));
    std::string error;
    EXPECT_TRUE(board_->Start(&error)) << error;
    host_.PowerOn();
    EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
    return *board_;
  }
  Board& Start() { return Start(SmallBoard(root_)); }

  void EnterLoopback() {
    host_.Send(kWriteLoopback, {1});
    for (int link = 0; link < 4; ++link) {
      const Packet event = host_.Read();  // Connection Complete: one ACL and three SCO handles
      ASSERT_EQ(0x03, event.at(1));
      ASSERT_EQ(link == 0 ? 1 : 0, event.at(12));
    }
    ASSERT_EQ(Complete(kWriteLoopback, {0}), host_.Read());
  }

  TempRoot root_;
  std::unique_ptr<Board> board_;
  BoardHost host_{root_};
};

// A packet of its own for each kind and number: 0x02, 0x03, 0x05 are data, 0x01 is a command.
Packet Numbered(uint8_t type, uint32_t number) {
  Packet payload;
  for (int i = 0; i < 4; ++i) payload.push_back(static_cast<uint8_t>(number >> 8 * i));
  payload.resize(4 + number % 60, static_cast<uint8_t>(number));
  const auto length = static_cast<uint8_t>(payload.size());
  Packet packet{type, 0x01, 0x00};
  if (type == 0x01) packet = {type, 0x27, 0xFC};
  packet.push_back(length);
  if (type == 0x02 || type == 0x05) packet.push_back(0);
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

TEST_F(BoardTrafficTest, LoopbackReturnsEverythingOnceAndInOrder) {
  Board& board = Start();
  host_.ChangeSpeed(4000000);
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  constexpr uint32_t kEach = 25000;
  constexpr uint8_t kTypes[] = {0x01, 0x02, 0x03, 0x05};
  std::map<uint8_t, uint32_t> sent;
  std::map<uint8_t, uint32_t> back;
  uint32_t credits = 0;
  // Writes without ever waiting for an answer, but for commands, of which one at a time is allowed; reads in between.
  std::thread writer([&] {
    for (uint32_t i = 0; i < kEach; ++i) {
      for (const uint8_t type : {0x02, 0x03, 0x05}) host_.Write(Numbered(type, i));
    }
  });
  while (back[0x02] < kEach || back[0x03] < kEach || back[0x05] < kEach || credits < 2 * kEach) {
    const Packet packet = host_.Read();
    ASSERT_FALSE(packet.empty()) << "after " << back[0x02] << " " << back[0x03] << " " << back[0x05];
    if (packet[0] == 0x04) {
      ASSERT_EQ(0x13, packet[1]);  // Number Of Completed Packets: one handle, how many packets
      credits += packet[6];
    } else {
      ASSERT_EQ(Numbered(packet[0], back[packet[0]]), packet);
      ++back[packet[0]];
    }
  }
  writer.join();
  EXPECT_EQ(2 * kEach, credits) << "ACL and ISO data; SCO data has no credits";
  for (uint32_t i = 0; i < kEach / 10; ++i) {
    const Packet command = Numbered(kTypes[0], i);
    host_.Write(command);
    Packet expected{0x04, 0x19, static_cast<uint8_t>(command.size() - 1)};
    expected.insert(expected.end(), command.begin() + 1, command.end());
    ASSERT_EQ(expected, host_.Read());
  }
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset)) << "obeyed even here, and ends the loopback";
  EXPECT_EQ(Complete(0x1801, {0, 0}), host_.Command(0x1801));
  EXPECT_THAT(Texts(board, WireEvent::kProtocolError), IsEmpty());
}

TEST_F(BoardTrafficTest, TheLongestCommandComesBackCutToAnEvent) {
  Start();
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  const Packet command = CommandPacket(0xFC4C, Packet(255, 0x5A));
  host_.Write(command);
  const Packet event = host_.Read();
  ASSERT_EQ(3u + 255u, event.size());
  EXPECT_TRUE(std::equal(event.begin() + 3, event.end(), command.begin() + 1));
}

// The host writes and does not read. The board must go on taking its bytes, or both would wait for ever.
TEST_F(BoardTrafficTest, TakesBytesFromAHostThatDoesNotRead) {
  Board& board = Start();
  ASSERT_NO_FATAL_FAILURE(EnterLoopback());
  constexpr uint32_t kPackets = 600;
  Packet big{0x02, 0x01, 0x00, 0xFD, 0x03};
  big.resize(5 + 1021, 0x77);
  for (uint32_t i = 0; i < kPackets; ++i) host_.Write(big);
  EXPECT_TRUE(WaitFor([&] { return board.WaitingForHost() > 300 * 1024; }));
  uint32_t back = 0;
  while (back < kPackets) {
    const Packet packet = host_.Read();
    ASSERT_FALSE(packet.empty()) << back;
    if (packet[0] != 0x02) continue;
    ASSERT_EQ(big, packet);
    ++back;
  }
}

TEST_F(BoardTrafficTest, NoticesASecondCommandBeforeTheAnswer) {
  Board& board = Start();
  Packet two = CommandPacket(kReset);
  const Packet second = CommandPacket(0x1009);
  two.insert(two.end(), second.begin(), second.end());
  host_.Write(two);
  EXPECT_EQ(Complete(kReset, {0}), host_.Read());
  EXPECT_EQ(0x09, host_.Read().at(4));
  EXPECT_THAT(Texts(board, WireEvent::kProtocolError), ElementsAre("command 0x1009 comes before the answer to 0x0C03"));
  // The debug request is never answered and takes no credit.
  host_.Send(0xFD5B);
  for (const uint8_t last : {0, 0, 1}) EXPECT_EQ(last, host_.Read().at(6));
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  EXPECT_EQ(1u, Count(board, WireEvent::kProtocolError));
}

TEST_F(BoardTrafficTest, RefusesWhatItDoesNotKnowOrUnderstand) {
  Board& board = Start();
  EXPECT_EQ(Complete(0xFCAA, {0x01}), host_.Command(0xFCAA));
  EXPECT_EQ(Complete(0x2017, {0x01}), host_.Command(0x2017, Packet(32, 0))) << "no encryption engine";
  EXPECT_EQ(Complete(0xFC01, {0x12}), host_.Command(0xFC01, {1, 2, 3}));
  EXPECT_EQ((Packet{0x04, 0x0F, 4, 0x02, 1, 0x06, 0x04}), host_.Command(0x0406, {0x40, 0, 0x13})) << "not connected";
  EXPECT_EQ(Complete(0x0C3F, {0x12}), host_.Command(0x0C3F, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0})) << "too few channels";
  EXPECT_EQ(Complete(0xFD62, {0x0C, 2}), host_.Command(0xFD62, {2, 0x40, 6, 0x0A, 0, 4, 0, 0, 0x50})) << "no keys yet";
  EXPECT_EQ(Complete(0xFD62, {0x12, 1}), host_.Command(0xFD62, {1, 0, 2, 9, 9})) << "keys are missing";
  Packet keys{1, 0, 1};
  keys.resize(3 + 20, 0xAB);
  EXPECT_EQ(Complete(0xFD62, {0, 1}), host_.Command(0xFD62, keys));
  EXPECT_EQ(Complete(0xFD62, {0, 2}), host_.Command(0xFD62, {2, 0x40, 6, 0x0A, 0, 4, 0, 0, 0x50}));
  // No host sends an event. The rest of what came with it is given up, what comes later is not.
  host_.Write({0x04, 0x0E, 0x00});
  ASSERT_TRUE(Await(board, WireEvent::kProtocolError));
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
}

TEST_F(BoardTrafficTest, ReadsBackWhatWasWrittenUntilReset) {
  Start();
  EXPECT_EQ(Complete(0x0C18, {0}), host_.Command(0x0C18, {0x34, 0x12}));
  EXPECT_EQ(Complete(0x0C17, {0, 0x34, 0x12}), host_.Command(0x0C17));
  host_.Command(kReset);
  EXPECT_EQ(Complete(0x0C17, {0, 0x00, 0x20}), host_.Command(0x0C17));
  const Packet supported = host_.Command(0x1002);
  EXPECT_EQ(0x80, supported.at(7 + 5) & 0x80) << "Reset";
  EXPECT_EQ(0x00, supported.at(7 + 27) & 0x40) << "LE Encrypt";
}

TEST_F(BoardTrafficTest, ScansAndConnects) {
  Start();
  EXPECT_EQ(Complete(0x200B, {0}), host_.Command(0x200B, {1, 0x10, 0, 0x10, 0, 0, 0}));
  EXPECT_EQ(Complete(0x200C, {0}), host_.Command(0x200C, {1, 1}));
  Packet peer;
  for (int i = 0; i < 3; ++i) {
    const Packet report = host_.Read();
    ASSERT_EQ(0x3E, report.at(1));
    ASSERT_EQ(report.size(), 3u + report[2]);
    ASSERT_EQ(report.size(), 14u + report[13] + 2 - 1) << "length, data, RSSI";
    if (i == 0) peer.assign(report.begin() + 6, report.begin() + 13);  // address type and address
  }
  EXPECT_EQ(Complete(0x200C, {0}), host_.Command(0x200C, {0, 0})) << "each was reported once";

  Packet create{0x60, 0, 0x60, 0, 0};
  create.insert(create.end(), peer.begin(), peer.end());
  create.resize(25);
  EXPECT_EQ((Packet{0x04, 0x0F, 4, 0, 1, 0x0D, 0x20}), host_.Command(0x200D, create));
  const Packet connected = host_.Read();
  ASSERT_EQ((Packet{0x04, 0x3E, 19, 0x01, 0x00}), Packet(connected.begin(), connected.begin() + 5));
  EXPECT_EQ(peer, Packet(connected.begin() + 8, connected.begin() + 15));
  const uint8_t handle = connected[5];

  // An exchange of MTUs: credit and answer.
  host_.Write({0x02, handle, 0x00, 7, 0, 3, 0, 4, 0, 0x02, 0xF7, 0x00});
  EXPECT_EQ((Packet{0x04, 0x13, 5, 1, handle, 0, 1, 0}), host_.Read());
  EXPECT_EQ((Packet{0x02, handle, 0x20, 7, 0, 3, 0, 4, 0, 0x03, 23, 0}), host_.Read());
  EXPECT_EQ((Packet{0x04, 0x0F, 4, 0, 1, 0x06, 0x04}), host_.Command(0x0406, {handle, 0, 0x13}));
  EXPECT_EQ((Packet{0x04, 0x05, 4, 0, handle, 0, 0x16}), host_.Read());
}

TEST_F(BoardTrafficTest, ConnectsToNobodyUntilItIsCancelled) {
  Start();
  Packet create(25, 0);
  create[6] = 0x99;
  EXPECT_EQ((Packet{0x04, 0x0F, 4, 0, 1, 0x0D, 0x20}), host_.Command(0x200D, create));
  EXPECT_THAT(host_.Read(kSoon), IsEmpty());
  EXPECT_EQ((Packet{0x04, 0x0F, 4, 0x0C, 1, 0x0D, 0x20}), host_.Command(0x200D, create)) << "one at a time";
  EXPECT_EQ(Complete(0x200E, {0}), host_.Command(0x200E));
  EXPECT_EQ(0x02, host_.Read().at(4));
}

TEST_F(BoardTrafficTest, ThreadFramesComeBackAndStream) {
  Board& board = Start();
  const Packet frame{0x70, 0, 0, 3, 0, 0xAA, 0xBB, 0xCC};
  host_.Write(frame);
  EXPECT_EQ(frame, host_.Read());
  constexpr uint32_t kFrames = 2000;
  board.StreamThreadFrames(kFrames, 1, 8192);
  size_t shortest = SIZE_MAX;
  size_t longest = 0;
  for (uint32_t i = 0; i < kFrames; ++i) {
    const Packet packet = host_.Read();
    const Packet payload = Board::ThreadPayload(i, 1, 8192);
    ASSERT_EQ(0x70, packet.at(0));
    ASSERT_EQ(payload, Packet(packet.begin() + 5, packet.end())) << i;
    shortest = std::min(shortest, payload.size());
    longest = std::max(longest, payload.size());
  }
  EXPECT_LT(shortest, 100u);
  EXPECT_GT(longest, 8000u);
}

// Only a lower bound: the wire cannot be faster than its bit rate.
TEST_F(BoardTrafficTest, PacedBytesTakeTheirTimeOnTheWire) {
  sim::BoardOptions options = SmallBoard(root_);
  options.pace = true;
  Start(options);
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
  explicit Emulator(const std::string& path) : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) throw std::runtime_error("bind");
    listen(listener_, 1);
  }
  ~Emulator() {
    close(peer_);
    close(listener_);
  }
  void Accept() { peer_ = accept(listener_, nullptr, nullptr); }
  // One read gives one whole packet.
  Packet Read() const {
    Packet packet(2048);
    const ssize_t count = recv(peer_, packet.data(), packet.size(), 0);
    packet.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return packet;
  }
  void Write(const Packet& packet) const { (void)!send(peer_, packet.data(), packet.size(), MSG_NOSIGNAL); }
  void HangUp() { close(std::exchange(peer_, -1)); }

 private:
  int listener_;
  int peer_ = -1;
};

TEST_F(BoardTrafficTest, AnEmulatorAnswersTheStandardCommands) {
  Emulator emulator(root_.Below("/emulator"));
  sim::BoardOptions options = SmallBoard(root_);
  options.backend = "unix:" + root_.Below("/emulator");
  Board board(options);
  std::string error;
  ASSERT_TRUE(board.Start(&error)) << error;
  emulator.Accept();
  host_.PowerOn();
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
  ASSERT_TRUE(Await(board, WireEvent::kProtocolError));
  EXPECT_THAT(Texts(board, WireEvent::kProtocolError), ElementsAre(HasSubstr("the emulator has gone: it hung up")));
  EXPECT_EQ(Complete(kReset, {0x03}), host_.Command(kReset)) << "Hardware Failure";
  EXPECT_EQ(188, host_.Command(0xFC79).at(7));
}

}  // namespace
}  // namespace bthal::test
