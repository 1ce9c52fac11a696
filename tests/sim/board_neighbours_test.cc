// The virtual board's neighbours, over connections: attributes, pairing, encryption, service records, echoes.
#include "sim/neighbours/pairing_functions.h"
#include "support/board_host.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Packet kNoName(10, 0);
const Packet kHost{3, 2, 1, 0x5A, 0x22, 0x22, 0};         // address and type
const Packet kThermometer{1, 0, 0, 0x5A, 0x22, 0xC2, 1};  // likewise
const Packet kHeadset{4, 0, 0, 0x5A, 0x22, 0};

// Bytes as people write numbers: most significant first.
Packet Number(const std::string& hex) {
  Packet bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    bytes.insert(bytes.begin(), static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

class BoardNeighboursTest : public BoardTest {
 protected:
  static constexpr uint16_t kAttributes = 4;
  static constexpr uint16_t kPairing = 6;
  static constexpr uint16_t kSignalling = 1;

  void SetUp() override { Play(); }

  // The parameters of the next event of this kind, whatever comes before it.
  Packet Event(uint8_t code) {
    for (;;) {
      const Packet packet = host_.Read();
      if (packet.empty()) throw std::runtime_error("no event");
      if (packet[0] == 0x04 && packet[1] == code) return {packet.begin() + 3, packet.end()};
    }
  }
  // The payload of the next frame on a channel.
  Packet Frame(uint16_t channel) {
    for (;;) {
      const Packet packet = host_.Read();
      if (packet.empty()) throw std::runtime_error("no frame");
      if (packet[0] == 0x02 && packet.at(7) + packet.at(8) * 256 == channel) return {packet.begin() + 9, packet.end()};
    }
  }
  void Say(uint16_t channel, const Packet& payload) {
    const auto size = static_cast<uint8_t>(payload.size());
    const auto low = static_cast<uint8_t>(channel);
    const auto high = static_cast<uint8_t>(channel >> 8);
    host_.Write(Joined({{0x02, handle_, 0x00, static_cast<uint8_t>(size + 4), 0, size, 0, low, high}, payload}));
  }
  Packet Ask(uint16_t channel, const Packet& payload) {
    Say(channel, payload);
    return Frame(channel);
  }

  void ConnectLe() {
    host_.Send(0x200D, Joined({{0x60, 0, 0x60, 0, 0, 1},
                               Packet(kThermometer.begin(), kThermometer.begin() + 6),
                               {0, 0x18, 0, 0x28, 0, 0, 0, 0xF4, 0x01, 0, 0, 0, 0}}));
    const Packet connected = Event(0x3E);
    ASSERT_EQ((Packet{0x01, 0x00}), Packet(connected.begin(), connected.begin() + 2));
    handle_ = connected[2];
  }
  void ConnectClassic() {
    host_.Send(0x0405, Joined({kHeadset, {0x18, 0xCC, 2, 0, 0, 0, 1}}));
    const Packet connected = Event(0x03);
    ASSERT_EQ(0, connected[0]);
    handle_ = connected[1];
  }
  void Disconnect() {
    host_.Send(0x0406, {handle_, 0, 0x13});
    ASSERT_EQ((Packet{0, handle_, 0, 0x16}), Event(0x05));
  }
  void Encrypt(const Packet& name, const Packet& key) { host_.Send(0x2019, Joined({{handle_, 0}, name, key})); }

  // Pairs as a host without keys and display that wants to be remembered, and asks for `requirements`.
  void Request(uint8_t requirements) {
    request_ = {0x01, 0x03, 0x00, requirements, 16, 0x01, 0x01};
    response_ = Ask(kPairing, request_);
  }

  uint8_t handle_ = 0;
  Packet request_;
  Packet response_;
};

const Packet kWriteNote{0x12, 0x0C, 0x00, 'h', 'i'};
const Packet kWritten{0x13};

TEST_F(BoardNeighboursTest, ThermometerTellsOfItself) {
  ConnectLe();
  EXPECT_EQ((Packet{0x03, 23, 0}), Ask(kAttributes, {0x02, 0xF7, 0x00}));
  EXPECT_EQ((Packet{0x11, 6, 1, 0, 5, 0, 0x00, 0x18, 6, 0, 9, 0, 0x0F, 0x18}),
            Ask(kAttributes, {0x10, 1, 0, 0xFF, 0xFF, 0x00, 0x28}));
  const Packet service = Ask(kAttributes, {0x10, 10, 0, 0xFF, 0xFF, 0x00, 0x28});
  EXPECT_EQ((Packet{0x11, 20, 10, 0, 12, 0}), Packet(service.begin(), service.begin() + 6)) << "of 128 bits";
  EXPECT_EQ((Packet{0x01, 0x10, 13, 0, 0x0A}), Ask(kAttributes, {0x10, 13, 0, 0xFF, 0xFF, 0x00, 0x28}));
  EXPECT_EQ((Packet{0x09, 7, 7, 0, 0x12, 8, 0, 0x19, 0x2A}), Ask(kAttributes, {0x08, 6, 0, 9, 0, 0x03, 0x28}));
  EXPECT_EQ((Packet{0x05, 1, 9, 0, 0x02, 0x29, 10, 0, 0x00, 0x28, 11, 0, 0x03, 0x28}),
            Ask(kAttributes, {0x04, 9, 0, 12, 0}));
  EXPECT_EQ((Packet{0x07, 6, 0, 9, 0}), Ask(kAttributes, {0x06, 1, 0, 0xFF, 0xFF, 0x00, 0x28, 0x0F, 0x18}));
  EXPECT_EQ("\x0BThermometer",
            [&](Packet name) { return std::string(name.begin(), name.end()); }(Ask(kAttributes, {0x0A, 3, 0})));
  EXPECT_EQ((Packet{0x0D, 'e', 'r'}), Ask(kAttributes, {0x0C, 3, 0, 9, 0}));
  const std::pair<Packet, uint8_t> refused[] = {
      {{0x0A, 13, 0}, 0x01},      {{0x0C, 3, 0, 12, 0}, 0x07},
      {{0x12, 3, 0, 'x'}, 0x03},  {{0x12, 9, 0, 1}, 0x0D},
      {{0x0A, 12, 0}, 0x0F},      {kWriteNote, 0x0F},
      {{0x16, 3, 0, 0, 0}, 0x06}, {{0x10, 1, 0, 9, 0, 1, 0x28}, 0x10},
      {{0x04, 2, 0, 1, 0}, 0x01}, {{0x0A, 3}, 0x04},
  };
  for (const auto& [request, reason] : refused) EXPECT_EQ(reason, Ask(kAttributes, request).at(4)) << int{request[0]};
  // A command, and a frame in two pieces; neither wants more than one answer.
  Say(kAttributes, {0x52, 9, 0, 0, 0});
  host_.Write({0x02, handle_, 0x00, 5, 0, 3, 0, 4, 0, 0x0A});
  host_.Write({0x02, handle_, 0x10, 2, 0, 8, 0});
  EXPECT_EQ((Packet{0x0B, 100}), Frame(kAttributes));
  EXPECT_EQ(kWritten, Ask(kAttributes, {0x12, 9, 0, 1, 0}));
  EXPECT_EQ((Packet{0x1B, 8, 0, 99}), Frame(kAttributes));
}

TEST_F(BoardNeighboursTest, PairsEncryptsAndRemembers) {
  ConnectLe();
  Request(0x01);
  EXPECT_EQ((Packet{0x02, 3, 0, 0x01, 16, 0x01, 0x01}), response_);
  const Packet own(16, 0x5A);
  const Packet own_confirm = sim::LegacyConfirmValue(own, request_, response_, kHost, kThermometer);
  const Packet confirm = Ask(kPairing, Joined({{0x03}, own_confirm}));
  const Packet random = Ask(kPairing, Joined({{0x04}, own}));
  const Packet others(random.begin() + 1, random.end());
  EXPECT_EQ(Joined({{0x03}, sim::LegacyConfirmValue(others, request_, response_, kHost, kThermometer)}), confirm);
  Encrypt(kNoName, sim::LegacySessionKey(others, own));
  EXPECT_EQ((Packet{0, handle_, 0, 1}), Event(0x08));
  const Packet key = Frame(kPairing);
  const Packet name = Frame(kPairing);
  ASSERT_EQ((Packet{0x06, 0x07}), (Packet{key.at(0), name.at(0)}));
  EXPECT_EQ(kWritten, Ask(kAttributes, kWriteNote));
  EXPECT_EQ((Packet{0x0B, 'h', 'i'}), Ask(kAttributes, {0x0A, 12, 0}));

  // Another connection: with the key that was handed out, with none of that name, and with a wrong one.
  const Packet long_term(key.begin() + 1, key.end());
  const Packet key_name = Joined({Packet(name.begin() + 3, name.end()), Packet(name.begin() + 1, name.begin() + 3)});
  Disconnect();
  host_.Command(kReset);
  ConnectLe();
  EXPECT_EQ(0x0F, Ask(kAttributes, kWriteNote).at(4));
  Encrypt(Packet(10, 0x77), long_term);
  EXPECT_EQ((Packet{0x06, handle_, 0, 0}), Event(0x08));
  Encrypt(key_name, long_term);
  EXPECT_EQ((Packet{0, handle_, 0, 1}), Event(0x08));
  Encrypt(key_name, long_term);
  EXPECT_EQ((Packet{0, handle_, 0}), Event(0x30)) << "once more";
  EXPECT_EQ(kWritten, Ask(kAttributes, kWriteNote));
  Encrypt(key_name, Packet(16, 0));
  EXPECT_EQ((Packet{0, handle_, 0, 0x3D}), Event(0x05));
}

TEST_F(BoardNeighboursTest, PairsWithTheEllipticCurve) {
  ConnectLe();
  Request(0x09);
  EXPECT_EQ((Packet{0x02, 3, 0, 0x09, 16, 0x01, 0x00}), response_);
  host_.Send(0x2025);
  const Packet made = Event(0x3E);
  const Packet own_public(made.begin() + 2, made.end());
  const Packet answer = Ask(kPairing, Joined({{0x0C}, own_public}));
  const Packet public_key(answer.begin() + 1, answer.end());
  const Packet confirm = Frame(kPairing);
  const Packet own(16, 0xA5);
  const Packet random = Ask(kPairing, Joined({{0x04}, own}));
  const Packet others(random.begin() + 1, random.end());
  auto first = [](const Packet& point) { return Packet(point.begin(), point.begin() + 32); };
  EXPECT_EQ(Joined({{0x03}, sim::SecureConfirmValue(first(public_key), first(own_public), others)}), confirm);
  host_.Send(0x2026, public_key);
  const Packet agreed = Event(0x3E);
  const sim::SecureKeys keys =
      sim::DeriveKeys(Packet(agreed.begin() + 2, agreed.end()), own, others, kHost, kThermometer);
  const Packet check = sim::CheckValue(keys.check, own, others, {3, 0, 0x09}, kHost, kThermometer);
  EXPECT_EQ(Joined({{0x0D}, sim::CheckValue(keys.check, others, own, {3, 0, 0x09}, kThermometer, kHost)}),
            Ask(kPairing, Joined({{0x0D}, check})));
  Encrypt(kNoName, keys.long_term);
  EXPECT_EQ((Packet{0, handle_, 0, 1}), Event(0x08));
  Disconnect();
  ConnectLe();
  Encrypt(kNoName, keys.long_term);
  EXPECT_EQ((Packet{0, handle_, 0, 1}), Event(0x08)) << "remembered";
}

TEST_F(BoardNeighboursTest, RefusesToPairWithWhoeverProvesNothing) {
  ConnectLe();
  EXPECT_EQ((Packet{0x05, 0x08}), Ask(kPairing, Joined({{0x04}, Packet(16, 0)})));
  Request(0x01);
  Ask(kPairing, Joined({{0x03}, Packet(16, 1)}));
  EXPECT_EQ((Packet{0x05, 0x04}), Ask(kPairing, Joined({{0x04}, Packet(16, 2)}))) << "not what was confirmed";
  EXPECT_EQ((Packet{0x05, 0x06}), Ask(kPairing, {0x01, 3, 0, 1, 7, 1, 1})) << "too short a key";
  Request(0x09);
  EXPECT_EQ((Packet{0x05, 0x0A}), Ask(kPairing, Joined({{0x0C}, Packet(64, 1)}))) << "no point of the curve";
  Request(0x09);
  host_.Send(0x2025);
  const Packet made = Event(0x3E);
  Ask(kPairing, Joined({{0x0C}, Packet(made.begin() + 2, made.end())}));
  Frame(kPairing);
  Ask(kPairing, Joined({{0x04}, Packet(16, 1)}));
  EXPECT_EQ((Packet{0x05, 0x0B}), Ask(kPairing, Joined({{0x0D}, Packet(16, 1)})));
  EXPECT_EQ((Packet{0x05, 0x0A}), Ask(kPairing, {0x03, 1})) << "too short a message";
  EXPECT_EQ((Packet{0x05, 0x07}), Ask(kPairing, {0x0F}));
  Encrypt(kNoName, Packet(16, 0));
  EXPECT_EQ((Packet{0x06, handle_, 0, 0}), Event(0x08)) << "there is no key";
}

// With numbers for which everybody knows the results.
TEST(PairingFunctions, ComputeAsEverybodyDoes) {
  EXPECT_EQ(Number("1E1E3FEF878988EAD2A74DC5BEF13B86"),
            sim::LegacyConfirmValue(Number("5783D52156AD6F0E6388274EC6702EE0"), Number("07071000000101"),
                                    Number("05000800000302"), Joined({Number("A1A2A3A4A5A6"), {1}}),
                                    Joined({Number("B1B2B3B4B5B6"), {0}})));
  EXPECT_EQ(
      Number("9A1FE1F0E8B0F49B5B4216AE796DA062"),
      sim::LegacySessionKey(Number("000F0E0D0C0B0A091122334455667788"), Number("010203040506070899AABBCCDDEEFF00")));
  const Packet one = Number("D5CB8454D177733EFFFFB2EC712BAEAB");
  EXPECT_EQ(Number("F2C916F107A9BD1CF1EDA1BEA974872D"),
            sim::SecureConfirmValue(Number("20B003D2F297BE2C5E2C83A7E9F9A5B9EFF49111ACF4FDDBCC0301480E359DE6"),
                                    Number("55188B3D32F6BB9A900AFCFBEED4E72A59CB9AC2F19D7CFB6B4FDD49F47FC5FD"), one));
  const sim::SecureKeys keys =
      sim::DeriveKeys(Number("EC0234A357C8AD05341010A60A397D9B99796B13B4F866F1868D34F373BFA698"), one,
                      Number("A6E8E7CC25A75F6E216583F7FF3DC4CF"), Number("0056123737BFCE"), Number("00A713702DCFC1"));
  EXPECT_EQ(Number("2965F176A1084A02FD3F6A20CE636E20"), keys.check);
  EXPECT_EQ(Number("6986791169D7CD23980522B594750A38"), keys.long_term);
}

TEST_F(BoardNeighboursTest, AsksForItsTimesWhereTheHostListens) {
  EXPECT_EQ(Complete(0x2001, {0}), host_.Command(0x2001, {0x3F, 0, 0, 0, 0, 0, 0, 0}));
  ConnectLe();
  EXPECT_EQ((Packet{0x06, handle_, 0, 0x20, 0, 0x28, 0, 4, 0, 0xF4, 0x01}), Event(0x3E));
  EXPECT_EQ(Complete(0x2020, {0, handle_, 0}),
            host_.Command(0x2020, {handle_, 0, 0x20, 0, 0x28, 0, 4, 0, 0xF4, 0x01, 0, 0, 0, 0}));
  EXPECT_EQ((Packet{0x03, 0, handle_, 0, 0x28, 0, 4, 0, 0xF4, 0x01}), Event(0x3E));
  EXPECT_EQ(Complete(0x2021, {0x0C, handle_, 0}), host_.Command(0x2021, {handle_, 0, 0x3B})) << "it asked once";
}

TEST_F(BoardNeighboursTest, HeadsetPairsSimplyOrByItsPin) {
  for (const bool simple : {true, false}) {
    ConnectClassic();
    host_.Command(0x0C56, {simple});
    EXPECT_EQ(Status(0x0411, 0), host_.Command(0x0411, {handle_, 0}));
    EXPECT_EQ(kHeadset, Event(0x17)) << "whether the host has a key";
    host_.Send(0x040C, kHeadset);
    EXPECT_EQ(kHeadset, Event(simple ? 0x31 : 0x16));
    if (simple) {
      host_.Send(0x042B, Joined({kHeadset, {3, 0, 4}}));
      EXPECT_EQ(Joined({kHeadset, {3, 0, 4}}), Event(0x32));
      EXPECT_EQ(10u, Event(0x33).size());
      host_.Send(0x042C, kHeadset);
      EXPECT_EQ(Joined({{0}, kHeadset}), Event(0x36));
    } else {
      host_.Send(0x040D, Joined({kHeadset, {4, '0', '0', '0', '0'}, Packet(12, 0)}));
    }
    const Packet told = Event(0x18);
    EXPECT_EQ(simple ? 4 : 0, told.at(22));
    EXPECT_EQ((Packet{0, handle_, 0}), Event(0x06));
    const Packet key(told.begin() + 6, told.begin() + 22);
    Disconnect();

    // Another connection: encryption wants the key first, and the right one.
    ConnectClassic();
    host_.Send(0x0413, {handle_, 0, 1});
    EXPECT_EQ((Packet{0x06, handle_, 0, 0}), Event(0x08));
    for (const bool right : {false, true}) {
      host_.Send(0x0411, {handle_, 0});
      Event(0x17);
      host_.Send(0x040B, Joined({kHeadset, right ? key : Packet(16, 0)}));
      EXPECT_EQ((Packet{right ? uint8_t{0x00} : uint8_t{0x05}, handle_, 0}), Event(0x06));
    }
    host_.Send(0x0413, {handle_, 0, 1});
    EXPECT_EQ((Packet{0, handle_, 0, 1}), Event(0x08));
    EXPECT_EQ(Complete(0x1408, {0, handle_, 0, 16}), host_.Command(0x1408, {handle_, 0}));
    Disconnect();
  }
}

TEST_F(BoardNeighboursTest, HeadsetTellsOfItsServicesAndEchoes) {
  ConnectClassic();
  EXPECT_EQ((Packet{0x09, 1, 3, 0, 'a', 'b', 'c'}), Ask(kSignalling, {0x08, 1, 3, 0, 'a', 'b', 'c'}));
  EXPECT_EQ((Packet{0x03, 2, 8, 0, 0, 0, 0x50, 0, 2, 0, 0, 0}), Ask(kSignalling, {0x02, 2, 4, 0, 3, 0, 0x50, 0}))
      << "no such service";
  EXPECT_EQ((Packet{0x0B, 3, 8, 0, 2, 0, 0, 0, 0x80, 0, 0, 0}), Ask(kSignalling, {0x0A, 3, 2, 0, 2, 0}));
  EXPECT_EQ((Packet{0x01, 4, 2, 0, 0, 0}), Ask(kSignalling, {0x40, 4, 0, 0})) << "not understood";
  auto open = [this](uint8_t low, uint8_t high, uint8_t hosts) {
    const Packet opened = Ask(kSignalling, {0x02, 5, 4, 0, low, high, hosts, 0});
    EXPECT_EQ((Packet{hosts, 0, 0, 0}), Packet(opened.begin() + 6, opened.begin() + 10));
    EXPECT_EQ(0x04, Frame(kSignalling).at(0)) << "it configures its end";
    const uint8_t theirs = opened[4];
    EXPECT_EQ((Packet{0x05, 6, 6, 0, hosts, 0, 0, 0, 0, 0}), Ask(kSignalling, {0x04, 6, 4, 0, theirs, 0, 0, 0}));
    return theirs;
  };
  const uint8_t echo = open(0x01, 0x10, 0x50);
  Say(echo, {1, 2, 3});
  EXPECT_EQ((Packet{1, 2, 3}), Frame(0x50));
  const uint8_t records = open(0x01, 0x00, 0x51);
  // Whoever has L2CAP: one record, whose channel is what was opened; in parts of 16 bytes.
  Packet list;
  Packet rest{0};
  do {
    Say(records, Joined({{0x06, 0, 7, 0, static_cast<uint8_t>(14 + rest.size()), 0x35, 3, 0x19, 1, 0, 0, 16, 0x35, 5,
                          0x0A, 0, 0, 0xFF, 0xFF},
                         rest}));
    const Packet part = Frame(0x51);
    ASSERT_EQ((Packet{0x07, 0, 7}), Packet(part.begin(), part.begin() + 3));
    const size_t size = part.at(6);
    list.insert(list.end(), part.begin() + 7, part.begin() + 7 + static_cast<ptrdiff_t>(size));
    rest.assign(part.begin() + 7 + static_cast<ptrdiff_t>(size), part.end());
  } while (rest.at(0) != 0);
  EXPECT_EQ(list.size(), 3u + list.at(1) * 256 + list.at(2));
  const Packet channel{0x19, 1, 0, 0x09, 0x10, 0x01};
  EXPECT_NE(list.end(), std::search(list.begin(), list.end(), channel.begin(), channel.end()));
  Say(records, {0x02, 0, 8, 0, 8, 0x35, 3, 0x19, 0x11, 0x08, 0, 9, 0});
  EXPECT_EQ((Packet{0x03, 0, 8, 0, 5, 0, 0, 0, 0, 0}), Frame(0x51)) << "none of a telephone's";
  Say(records, {0x04, 0, 9, 0, 4, 0, 0, 0, 0});
  EXPECT_EQ((Packet{0x01, 0, 9, 0, 2, 0, 3}), Frame(0x51)) << "cut off";
  EXPECT_EQ((Packet{0x07, 8, 4, 0, echo, 0, 0x50, 0}), Ask(kSignalling, {0x06, 8, 4, 0, echo, 0, 0x50, 0}));
  EXPECT_EQ((Packet{0x01, 9, 6, 0, 2, 0, echo, 0, 0, 0}), Ask(kSignalling, {0x06, 9, 4, 0, echo, 0, 0x50, 0}));
}

// The phone finds a host that advertises, once, and asks for its name.
TEST_F(BoardNeighboursTest, PhoneConnectsToWhoeverLetsIt) {
  Packet parameters{0x20, 0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 2};
  EXPECT_EQ(Complete(0x2006, {0}), host_.Command(0x2006, parameters));
  EXPECT_EQ(Complete(0x200A, {0}), host_.Command(0x200A, {1}));
  EXPECT_THAT(host_.Read(kSoonMs), IsEmpty()) << "only those on the accept list";
  EXPECT_EQ(Complete(0x2006, {0x0C}), host_.Command(0x2006, parameters)) << "not while it advertises";
  host_.Command(0x200A, {0});
  host_.Command(0x2011, {1, 5, 0, 0, 0x5A, 0x22, 0xC2});
  host_.Send(0x200A, {1});
  Packet connected = Event(0x3E);
  EXPECT_EQ((Packet{0x01, 0, connected[2], 0, 1, 1, 5, 0, 0, 0x5A, 0x22, 0xC2}),
            Packet(connected.begin(), connected.begin() + 12));
  EXPECT_EQ((Packet{0x08, 1, 0, 0xFF, 0xFF, 0x00, 0x2A}), Frame(kAttributes));
  handle_ = connected[2];
  EXPECT_EQ((Packet{0x03, 23, 0}), Ask(kAttributes, {0x02, 0xF7, 0}));
  EXPECT_EQ(Status(0x2019, 0x0C), host_.Command(0x2019, Joined({{handle_, 0}, Packet(26, 0)}))) << "the phone leads";
  Say(kAttributes, {0x0A, 3, 0});
  EXPECT_EQ((Packet{0x0B, 'P', 'h', 'o', 'n', 'e'}), Frame(kAttributes));

  // The host wants a secure link: the phone pairs, and encrypts.
  request_ = Ask(kPairing, {0x0B, 0x01});
  EXPECT_EQ((Packet{0x01, 3, 0, 1, 16, 0, 1}), request_);
  response_ = {0x02, 3, 0, 1, 16, 0, 1};
  const Packet phone{5, 0, 0, 0x5A, 0x22, 0xC2, 1};
  const Packet own(16, 0x5A);
  const Packet confirm = Ask(kPairing, response_);
  const Packet random =
      Ask(kPairing, Joined({{0x03}, sim::LegacyConfirmValue(own, request_, response_, phone, kHost)}));
  const Packet phones(random.begin() + 1, random.end());
  EXPECT_EQ(Joined({{0x03}, sim::LegacyConfirmValue(phones, request_, response_, phone, kHost)}), confirm);
  Say(kPairing, Joined({{0x04}, own}));
  EXPECT_EQ(Joined({{0x05, handle_, 0}, kNoName}), Event(0x3E)) << "which key?";
  host_.Send(0x201A, Joined({{handle_, 0}, sim::LegacySessionKey(own, phones)}));
  EXPECT_EQ((Packet{0, handle_, 0, 1}), Event(0x08));
  const Packet key(16, 0x3C);
  Say(kPairing, Joined({{0x06}, key}));
  Say(kPairing, {0x07, 9, 10, 1, 2, 3, 4, 5, 6, 7, 8});
  Disconnect();

  EXPECT_EQ(Complete(0x2036, {0, 0}), host_.Command(0x2036, {7, 0x13, 0, 0x20, 0, 0, 0x20, 0, 0, 7, 0, 0, 0,
                                                             0, 0,    0, 0,    0, 0, 0x7F, 1, 0, 1, 0, 0}));
  host_.Send(0x2039, {1, 1, 7, 0, 0, 0});
  connected = Event(0x3E);
  EXPECT_EQ(0x0A, connected[0]);
  handle_ = connected[2];
  EXPECT_EQ((Packet{0x12, 0, 7, handle_, 0, 1}), Event(0x3E));
  EXPECT_EQ((Packet{0x05, handle_, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}), Event(0x3E)) << "it remembers";
  host_.Send(0x201A, Joined({{handle_, 0}, key}));
  EXPECT_EQ((Packet{0, handle_, 0, 1}), Event(0x08));
  EXPECT_EQ(Complete(0x201B, {0x0C, handle_, 0}), host_.Command(0x201B, {handle_, 0})) << "it asked once";
}

TEST_F(BoardNeighboursTest, WhatIsLimitedEndsByItself) {
  EXPECT_EQ(Complete(0x2036, {0, 0}), host_.Command(0x2036, {7, 0x10, 0, 0x20, 0, 0, 0x20, 0, 0, 7, 0, 0, 0,
                                                             0, 0,    0, 0,    0, 0, 0x7F, 1, 0, 1, 0, 0}));
  host_.Send(0x2039, {1, 1, 7, 3, 0, 0});
  EXPECT_EQ((Packet{0x12, 0x3C, 7, 0, 0, 0}), Event(0x3E)) << "30 ms of advertising that nobody can connect to";
  EXPECT_EQ(Complete(0x203C, {0}), host_.Command(0x203C, {7})) << "it is off";
  host_.Send(0x2042, {1, 0, 1, 0, 0, 0});
  EXPECT_EQ((Packet{0x11}), Event(0x3E)) << "10 ms of scanning";
  EXPECT_EQ(Complete(0x2041, {0}), host_.Command(0x2041, {0, 0, 1, 1, 0x10, 0, 0x10, 0})) << "it is off";
}

}  // namespace
}  // namespace bthal::test
