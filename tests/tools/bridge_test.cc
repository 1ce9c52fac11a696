// bthal bridge: host stacks of this machine on top of the real service, on the virtual board.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <random>

#include "bthal/bridge/host_decoder.h"
#include "bthal/bridge/ledger.h"
#include "bthal/bridge/outbox.h"
#include "bthal/hci/framing.h"
#include "support/board_session.h"
#include "support/h4_stream.h"
#include "support/run_program.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

using tool::HostDecoder;
using tool::Ledger;
using tool::Outbox;

const Bytes kReset = {0x01, 0x03, 0x0C, 0x00};
const Bytes kResetDone = {0x04, 0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00};
const Bytes kReadAddress = {0x01, 0x09, 0x10, 0x00};
const Bytes kAddressRead = {0x04, 0x0E, 0x0A, 0x01, 0x09, 0x10, 0x00, 0x33, 0x22, 0x11, 0xCC, 0xBB, 0xAA};
const Bytes kReadCommands = {0x01, 0x02, 0x10, 0x00};

TEST(HostDecoderTest, AnyChunkingYieldsTheSamePacketsAndStrangersEndTheStream) {
  std::mt19937 random(1);
  Bytes stream;
  std::vector<std::pair<uint8_t, Bytes>> sent;
  for (int i = 0; i < 60; ++i) {
    const uint8_t kind = std::array<uint8_t, 4>{0x01, 0x02, 0x03, 0x05}[random() % 4];
    Bytes packet = kind == 0x01 ? Bytes{0x03, 0x0C, 0x02, 0x11, 0x22} : RandomPacket(kind, random);
    AppendH4(stream, kind, packet);
    sent.emplace_back(kind, std::move(packet));
  }
  for (const size_t largest : {1, 3, 64, 4096, 1 << 20}) {
    std::vector<std::pair<uint8_t, Bytes>> got;
    HostDecoder decoder([&](uint8_t kind, std::span<const uint8_t> packet) {
      got.emplace_back(kind, Bytes(packet.begin(), packet.end()));
    });
    for (const Bytes& piece : RandomPieces(stream, largest, random)) ASSERT_TRUE(decoder.Decode(piece));
    EXPECT_TRUE(got == sent) << "pieces of up to " << largest;
    EXPECT_EQ(decoder.pending(), 0u);
  }
  for (const uint8_t stranger : {0x00, 0x04, 0x06, 0x70, 0xFF}) {
    size_t packets = 0;
    HostDecoder decoder([&](uint8_t, std::span<const uint8_t>) { ++packets; });
    EXPECT_FALSE(decoder.Decode(Joined({kReset, {stranger}, kReset}))) << int{stranger};
    EXPECT_EQ(packets, 1u) << "what came before it is whole";
    EXPECT_EQ(decoder.bad_type(), stranger);
  }
}

// The controller's other packets, a megabyte behind which reports are dropped.
TEST(OutboxTest, ReportsAreDroppedFirstDataNeverAndWhoNeverReadsIsFound) {
  const Bytes report = {0x3E, 0x0C, 0x02, 0x01, 0, 0, 1, 2, 3, 4, 5, 6, 0, 0xC0};
  const Bytes connection = {0x3E, 0x01, 0x01};
  const Bytes acl(1021, 0x55);
  Outbox outbox;
  EXPECT_FALSE(outbox.Put(0x04, report)) << "nobody is there";
  outbox.Open();
  size_t kept = 0;
  for (; kept * (acl.size() + 1) <= Outbox::kCrowded; ++kept) ASSERT_TRUE(outbox.Put(0x02, acl));
  EXPECT_TRUE(outbox.Put(0x04, report));
  EXPECT_TRUE(outbox.Put(0x04, {{0x2F, 0x01, 0x01}}));
  EXPECT_EQ(outbox.dropped_reports(), 2u);
  EXPECT_TRUE(outbox.Put(0x04, connection));
  std::deque<Outbox::Packet> packets;
  ASSERT_TRUE(outbox.Take(&packets));
  ASSERT_EQ(packets.size(), kept + 1);
  EXPECT_EQ(packets.back(), Joined({{0x04}, connection}));
  EXPECT_TRUE(outbox.Put(0x04, report)) << "there is room again";
  EXPECT_EQ(outbox.dropped_reports(), 2u);

  while (outbox.Put(0x02, acl)) continue;
  EXPECT_TRUE(outbox.full());
  EXPECT_FALSE(outbox.Take(&packets));
  outbox.Open();
  EXPECT_FALSE(outbox.full());
  std::thread waiting([&] { EXPECT_FALSE(outbox.Take(&packets)); });
  outbox.Close();
  waiting.join();
}

TEST(LedgerTest, TellsWhatWasRefusedUnansweredAndUnknown) {
  Ledger ledger;
  for (int i = 0; i < 2; ++i) {
    ledger.Sent(0x01, {{0x39, 0x0C, 0x00}});
    ledger.Received(0x04, {{0x0E, 0x04, 0x01, 0x39, 0x0C, 0x01}});
  }
  ledger.Sent(0x01, {{0x03, 0x0C, 0x00}});
  ledger.Sent(0x01, {{0x99, 0xFC, 0x00}});
  ledger.Received(0x04, {{0x0F, 0x04, 0x00, 0x01, 0x99, 0xFC}});
  ledger.Received(0x04, {{0x60, 0x00}});
  ledger.Sent(0x02, {{0x40, 0x00, 0x00, 0x00}});
  EXPECT_EQ(ledger.Report(),
            "4 commands and 1 data packets to the controller, 4 events and 0 data packets from it\n"
            "Refused:\n"
            "  Read Current IAC LAP: unknown HCI command, 2 times\n"
            "Unanswered:\n"
            "  Reset, once\n"
            "Without a name:\n"
            "  opcode 0xFC99, once\n"
            "  event 0x60, once\n");
}

TEST(LedgerTest, WhatIsNotAnsweredSoonAfterItsHostHasGoneIsOwedToNobody) {
  Ledger ledger;
  const auto send = [&] { ledger.Sent(kReset[0], std::span(kReset).subspan(1)); };
  const auto is_the_hosts = [&](Ledger::Clock::time_point at) {
    return ledger.Received(kResetDone[0], std::span(kResetDone).subspan(1), at);
  };
  const auto gone = Ledger::Clock::now();
  ledger.NewHost(gone);
  send();
  send();
  ledger.HostGone(gone);
  ledger.NewHost(gone + seconds(1));
  send();
  EXPECT_FALSE(is_the_hosts(gone + seconds(2)));
  EXPECT_TRUE(is_the_hosts(gone + std::chrono::minutes(1))) << "the predecessor's other answer never came";
  send();
  ledger.HostGone(gone + std::chrono::minutes(2));
  ledger.NewHost(gone + std::chrono::minutes(3));
  send();
  EXPECT_TRUE(is_the_hosts(gone + std::chrono::minutes(3))) << "who had been away for longer";
}

// A host stack's end of a connection.
class Host {
 public:
  explicit Host(int fd) : fd_(fd) {}

  static Host OnSocket(const std::string& path) { return Host(ConnectedTo(path).release()); }
  static Host OnPort(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0) << strerror(errno);
    return Host(fd.release());
  }
  static Host OnTerminal(const std::string& path) { return Host(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)); }

  void Say(const Bytes& bytes) const {
    EXPECT_EQ(write(fd_.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size())) << strerror(errno);
  }
  // What there is, at most `most` bytes; nothing when the other side has gone.
  Bytes HearSome(size_t most = 65536) const {
    Bytes bytes(most);
    pollfd readable{fd_.get(), POLLIN, 0};
    const ssize_t n = poll(&readable, 1, 60000) > 0 ? read(fd_.get(), bytes.data(), most) : 0;
    bytes.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return bytes;
  }
  // `count` bytes, or fewer when the other side has gone.
  Bytes Hear(size_t count) const {
    Bytes bytes;
    while (bytes.size() < count) {
      const Bytes some = HearSome(count - bytes.size());
      if (some.empty()) break;
      bytes.insert(bytes.end(), some.begin(), some.end());
    }
    return bytes;
  }
  bool IsSentAway() const { return Hear(1).empty(); }
  bool IsServed() const {
    Say(kReset);
    return Hear(kResetDone.size()) == kResetDone;
  }
  int fd() const { return fd_.get(); }

 private:
  unique_fd fd_;
};

// What a host hears, packet by packet.
class PacketStream {
 public:
  explicit PacketStream(const Host& host) : host_(host) {}

  // Type 0 when the other side has gone.
  std::pair<uint8_t, Bytes> Next() {
    const uint8_t type = Is(1) ? heard_[at_] : 0;
    const size_t header = type == 0 ? 0 : tool::HeaderSize(type);
    if (type == 0 || !Is(1 + header)) return {};
    const size_t size = header + tool::SaidLength(type, std::span(heard_).subspan(at_ + 1));
    if (!Is(1 + size)) return {};
    const auto begin = heard_.begin() + static_cast<ptrdiff_t>(at_ + 1);
    at_ += 1 + size;
    return {type, Bytes(begin, begin + static_cast<ptrdiff_t>(size))};
  }

 private:
  bool Is(size_t count) {
    while (heard_.size() - at_ < count) {
      const Bytes more = host_.HearSome();
      if (more.empty()) return false;
      heard_.erase(heard_.begin(), heard_.begin() + static_cast<ptrdiff_t>(std::exchange(at_, 0)));
      heard_.insert(heard_.end(), more.begin(), more.end());
    }
    return true;
  }

  const Host& host_;
  Bytes heard_;
  size_t at_ = 0;
};

class BridgeTest : public BoardSessionTest {
 protected:
  void Start(std::vector<std::string> backend) {
    ASSERT_NO_FATAL_FAILURE(StartBoard());
    StartService("error");
    backend.insert(backend.begin(), "bridge");
    ASSERT_TRUE(bridge_.Start(std::move(backend)));
    ASSERT_TRUE(bridge_.Says(" is there"));
  }
  int Stop() {
    kill(bridge_.talk.pid(), SIGTERM);
    return bridge_.End();
  }

  const std::string path_ = root_.path() + "/host";
  Companion bridge_;
};

TEST_F(BridgeTest, OneHostAfterTheOtherOverAUnixSocket) {
  Start({"unix", path_, "-v"});
  EXPECT_EQ(root_.ModeOf("/host"), 0600u);
  {
    const Host first = Host::OnSocket(path_);
    EXPECT_TRUE(first.IsServed());
    EXPECT_TRUE(Host::OnSocket(path_).IsSentAway()) << "one at a time";
    first.Say({0x01, 0x03});  // and leaves in the middle of a command
  }
  ASSERT_TRUE(bridge_.Says("the host has gone"));
  for (const uint8_t stranger : {0x70, 0xFF, 0x04}) {
    const Host bad = Host::OnSocket(path_);
    EXPECT_TRUE(bad.IsServed()) << "nothing of its predecessor is left";
    bad.Say({stranger, 0x00, 0x00, 0x00, 0x00});
    EXPECT_TRUE(bad.IsSentAway());
  }
  EXPECT_TRUE(Host::OnSocket(path_).IsServed());
  EXPECT_EQ(Count(*board_, sim::WireEvent::kPatchLaunched), 1u) << "the HAL was given back in between";

  EXPECT_EQ(RunProgram({BTHAL_PROGRAM, "hci", "reset"}).status, 1) << "it is the bridge's";
  kill(bridge_.talk.pid(), SIGUSR1);
  EXPECT_TRUE(bridge_.Says("Unanswered"));
  EXPECT_EQ(Stop(), 128 + SIGTERM);
  EXPECT_THAT(bridge_.lines, Contains(HasSubstr("the host has gone: it sent the packet type 0x70")));
  EXPECT_THAT(bridge_.lines, Contains(HasSubstr("* bridge   the HAL is closed")));
  EXPECT_THAT(bridge_.lines, Contains(HasSubstr("command  Reset")));
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(RunProgram({BTHAL_PROGRAM, "hci", "reset"}).status, 0);
}

// Its answers come when its successor is there and has sent the same.
TEST_F(BridgeTest, AnAnswerToAHostThatHasGoneIsNotForItsSuccessor) {
  Start({"unix", path_});
  std::string error;
  ASSERT_TRUE(board_->AddFault("late-answer,opcode=0x1002,ms=700,count=1", &error)) << error;
  {
    const Host gone = Host::OnSocket(path_);
    gone.Say(Joined({kReadCommands, kReset}));
    ASSERT_TRUE(Receives(*board_, kReadCommands[0], {kReadCommands.begin() + 1, kReadCommands.end()}));
  }
  ASSERT_TRUE(bridge_.Says("the host has gone"));
  const Host next = Host::OnSocket(path_);
  next.Say(Joined({kReset, kReadAddress}));
  EXPECT_EQ(next.Hear(kResetDone.size() + kAddressRead.size()), Joined({kResetDone, kAddressRead}));
  kill(bridge_.talk.pid(), SIGUSR1);
  EXPECT_TRUE(bridge_.Says("from it while no host was there, 2 times"));
}

TEST_F(BridgeTest, APseudoTerminalIsRawAndNewForEachHost) {
  Start({"pty", path_});
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(i == 0 || bridge_.Says("the host has gone"));
    const Host host = Host::OnTerminal(path_);
    EXPECT_TRUE(host.IsServed());
    host.Say(kReadAddress);
    EXPECT_THAT(host.Hear(kAddressRead.size()), ElementsAreArray(kAddressRead));
    host.Say(kReset);  // whose answer nobody reads
    if (i == 1) {
      host.Say({0xFF});
      host.Hear(100);  // to the hang-up
    }
  }
  EXPECT_TRUE(bridge_.Says("the host has gone"));
  EXPECT_EQ(Stop(), 128 + SIGTERM);
  EXPECT_FALSE(std::filesystem::is_symlink(path_));
}

TEST_F(BridgeTest, AHostLosesItsControllerWithTheServiceAndGetsTheNextOne) {
  Start({"unix", path_});
  {
    const Host host = Host::OnSocket(path_);
    EXPECT_TRUE(host.IsServed());
    service_->Signal(SIGKILL);
    EXPECT_TRUE(host.IsSentAway());
  }
  ASSERT_TRUE(bridge_.Says("waiting for the service"));
  EXPECT_FALSE(std::filesystem::exists(path_));
  StartService("error");
  ASSERT_TRUE(bridge_.Says(" is there"));
  EXPECT_TRUE(Host::OnSocket(path_).IsServed());
  // Killed, it leaves its socket behind, which is in nobody's way.
  kill(bridge_.talk.pid(), SIGKILL);
  EXPECT_EQ(bridge_.End(), -1);
  Companion next;
  ASSERT_TRUE(next.Start({"bridge", "unix", path_, "--once"}));
  ASSERT_TRUE(next.Says(" is there"));
  EXPECT_TRUE(Host::OnSocket(path_).IsServed());
  EXPECT_EQ(next.End(), 0);
}

// The controller sends every data packet back, with a credit for it.
class LoopbackTest : public BridgeTest {
 protected:
  static constexpr uint8_t kAclType = 0x02, kEventType = 0x04, kHandle = 0x01;
  static constexpr uint8_t kCompletedPackets = 0x13, kLoopbackCommand = 0x19;

  Host ConnectToPort() {
    const std::string line = bridge_.lines.back();
    Host host = Host::OnPort(std::stoi(line.substr(line.rfind(':') + 1)));
    BeginLoopback(host);
    return host;
  }

  static void BeginLoopback(const Host& host) {
    EXPECT_TRUE(host.IsServed());
    host.Say({0x01, 0x02, 0x18, 0x01, 0x01});        // Write Loopback Mode: local
    constexpr size_t kConnections = size_t{4} * 14;  // Connection Complete of one data and three voice links
    EXPECT_EQ(host.Hear(7 + kConnections).size(), 7 + kConnections);
  }

  // Header and payload behind the type byte; the payload says which one it is.
  static Bytes Numbered(uint32_t number) {
    Bytes packet = MakePacket(kAclType, 4 + number % 1017, static_cast<uint8_t>(number));
    packet[0] = kHandle;
    packet[1] = 0x20;
    memcpy(&packet[4], &number, sizeof(number));
    return packet;
  }
};

// As many each way as BRIDGE_PACKETS says.
TEST_F(LoopbackTest, NothingIsLostReorderedOrDuplicatedBesideTheHalsOwnCommands) {
  const char* wanted = getenv("BRIDGE_PACKETS");
  const uint32_t packets = wanted != nullptr ? static_cast<uint32_t>(std::stoul(wanted)) : 5000;
  Start({"unix", path_});
  const Host host = Host::OnSocket(path_);
  BeginLoopback(host);
  std::thread writer([&] {
    for (uint32_t number = 0; number < packets; ++number) {
      Bytes stream;
      AppendH4(stream, kAclType, Numbered(number));
      host.Say(stream);
    }
  });
  // In this mode each comes back as an event.
  std::atomic<bool> done = false;
  std::atomic<uint32_t> asked = 0;
  std::thread others([&] {
    for (; !done; ++asked) EXPECT_EQ(RunProgram({BTHAL_PROGRAM, "afh", "--avoid", "0-21"}).status, 0);
  });
  uint32_t next = 0;
  uint32_t credits = 0;
  uint32_t maps = 0;
  PacketStream stream(host);
  const auto take_next = [&] {
    const auto [type, packet] = stream.Next();
    if (type == kAclType) {
      EXPECT_EQ(packet, Numbered(next++));
    } else if (type == kEventType && packet[0] == kCompletedPackets) {
      credits += packet[5] | packet[6] << 8;
    } else if (type == kEventType && packet[0] == kLoopbackCommand) {
      ++maps;
    }
    return type != 0 && !HasFailure();
  };
  while (next < packets && take_next()) continue;
  if (next < packets) shutdown(host.fd(), SHUT_RDWR);  // lets the writer go
  done = true;
  writer.join();
  others.join();
  while ((credits < packets || maps < asked) && take_next()) continue;
  EXPECT_EQ(next, packets);
  EXPECT_EQ(credits, packets);
  EXPECT_EQ(maps, asked);
  EXPECT_GT(asked, 0u);
}

TEST_F(LoopbackTest, AHostThatReadsNothingIsSentAwayAndHoldsNobodyUp) {
  Start({"tcp", "0"});
  const Host host = ConnectToPort();
  Bytes stream;
  AppendH4(stream, 0x02, Numbered(1016));
  while (send(host.fd(), stream.data(), stream.size(), MSG_NOSIGNAL) > 0) continue;
  EXPECT_TRUE(bridge_.Says("it does not read what the controller sends"));
  EXPECT_TRUE(service_->IsAlive());
  EXPECT_EQ(Stop(), 128 + SIGTERM);
  EXPECT_EQ(RunProgram({BTHAL_PROGRAM, "hci", "reset"}).status, 0);
}

TEST_F(BridgeTest, WhatIsInItsWayIsToldAndStays) {
  ASSERT_NO_FATAL_FAILURE(StartBoard());
  root_.Write("/file", "somebody's");
  const std::string file = root_.path() + "/file";
  const std::vector<std::vector<std::string>> refused = {{"unix", file},
                                                         {"pty", file},
                                                         {"unix", root_.path() + "/" + std::string(120, 'x')},
                                                         {"tcp", "1", "--listen", "here"},
                                                         {"vhci", "--device", root_.path() + "/none"}};
  for (std::vector<std::string> arguments : refused) {
    arguments.insert(arguments.begin(), {BTHAL_PROGRAM, "bridge"});
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, 1) << result.error;
    EXPECT_THAT(result.error, MatchesRegex("bthal: [^\n]+\n"));
  }
  EXPECT_EQ(root_.Read("/file"), "somebody's");
}

}  // namespace
}  // namespace bthal
