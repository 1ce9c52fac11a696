// The standard commands that the virtual board obeys, and those that it refuses.
#include "support/board_host.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using BoardCommandsTest = BoardTest;

// LE Create Connection to a peer: its address type and address.
Packet CreateConnection(const Packet& peer) {
  return Joined({{0x60, 0, 0x60, 0, 0}, peer, {0, 0x18, 0, 0x28, 0, 0, 0, 0xF4, 0x01, 0, 0, 0, 0}});
}

TEST_F(BoardCommandsTest, RefusesWhatItDoesNotKnowOrUnderstand) {
  Board& board = Play();
  EXPECT_EQ(Complete(0xFCAA, {0x01}), host_.Command(0xFCAA));
  EXPECT_EQ(Complete(0x2033, {0x01}), host_.Command(0x2033, Packet(1, 0))) << "no direct test mode";
  EXPECT_EQ(Complete(0xFC01, {0x12}), host_.Command(0xFC01, {1, 2, 3}));
  EXPECT_EQ(Status(0x0406, 0x02), host_.Command(0x0406, {0x40, 0, 0x13})) << "not connected";
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

struct OutOfRange {
  uint16_t opcode;
  Packet good;
  std::vector<std::pair<size_t, uint8_t>> bad;  // this byte with this value
};

uint8_t StatusIn(const Packet& answer) { return answer.at(answer.at(1) == 0x0F ? 3 : 6); }

TEST_F(BoardCommandsTest, RefusesParametersOutOfRange) {
  Play();
  const Packet connect = CreateConnection({1, 9, 0, 0, 0, 0, 0});
  const Packet advertise{0x20, 0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 0};
  const Packet advertising_set{1, 0x13, 0, 0x20, 0, 0, 0x20, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x7F, 1, 0, 1, 0, 0};
  const Packet extended_connect = Joined(
      {{0, 0, 1, 9, 0, 0, 0, 0, 0, 1}, {connect.begin(), connect.begin() + 4}, {connect.begin() + 13, connect.end()}});
  const OutOfRange commands[] = {
      {0x0401, {0x33, 0x8B, 0x9E, 4, 0}, {{0, 0x40}, {2, 0x9F}, {3, 0}, {3, 0x31}}},
      {0x0405, {9, 0, 0, 0, 0, 0, 0x18, 0xCC, 2, 0, 0, 0, 1}, {{8, 3}, {12, 2}}},
      {0x0406, {0x40, 0, 0x13}, {{2, 0x00}, {2, 0x16}}},
      {0x0409, {9, 0, 0, 0, 0, 0, 1}, {{6, 2}}},
      {0x040A, {9, 0, 0, 0, 0, 0, 0x0D}, {{6, 0x0C}, {6, 0x10}}},
      {0x0413, {0x40, 0, 1}, {{2, 2}}},
      {0x0419, {9, 0, 0, 0, 0, 0, 1, 0, 0, 0}, {{6, 3}}},
      {0x042B, {9, 0, 0, 0, 0, 0, 3, 0, 5}, {{6, 4}, {7, 2}, {8, 6}}},
      {0x042E, {9, 0, 0, 0, 0, 0, 0x3F, 0x42, 0x0F, 0}, {{6, 0x40}, {9, 1}}},
      {0x0803, {0x40, 0, 4, 0, 2, 0, 1, 0, 0, 0}, {{2, 0}, {2, 3}, {4, 6}, {6, 0}, {9, 0x80}}},
      {0x080B, {9, 0, 0, 0, 0, 0, 1}, {{6, 2}}},
      {0x080D, {0x40, 0, 0x0F, 0}, {{2, 0x10}}},
      {0x0C05, {2, 0, 1}, {{0, 3}, {1, 3}, {1, 1}, {2, 4}}},
      {0x0C12, {0, 0, 0, 0, 0, 0, 1}, {{6, 2}}},
      {0x0C16, {0xA0, 0x1F}, {{1, 0xB6}}},
      {0x0C1A, {3}, {{0, 4}}},
      {0x0C1C, {0x00, 0x08, 0x12, 0x00}, {{0, 1}, {1, 0x11}, {2, 0x10}, {3, 0x09}}},
      {0x0C26, {0x60, 0}, {{1, 4}}},
      {0x0C2F, {1}, {{0, 2}}},
      {0x0C3A, {1, 0x33, 0x8B, 0x9E}, {{0, 0}, {0, 2}, {2, 0}}},
      {0x0C3F, {0xFF, 0xFF, 0xF0, 0, 0, 0, 0, 0, 0, 0}, {{2, 0x70}, {9, 0x80}}},
      {0x0C45, {2}, {{0, 3}}},
      {0x0C2D, {0x40, 0, 1}, {{2, 2}}},
      {0x0C56, {1}, {{0, 2}}},
      {0x0C59, {20}, {{0, 21}, {0, 0x80}}},
      {0x1004, {1}, {{0, 2}}},
      {0x1802, {0}, {{0, 2}}},
      {0x2006, advertise, {{0, 0x1F}, {2, 0x1F}, {4, 5}, {5, 4}, {6, 2}, {13, 0}, {13, 8}, {14, 4}}},
      {0x2008, Packet(32, 0), {{0, 32}}},
      {0x200A, {1}, {{0, 2}}},
      {0x200B, {1, 0x10, 0, 0x10, 0, 0, 0}, {{0, 2}, {1, 0x0F}, {2, 0x41}, {3, 3}, {5, 4}, {6, 2}}},
      {0x200C, {0, 0}, {{0, 5}, {0, 2}, {1, 2}}},
      {0x200D,
       connect,
       {{0, 0x5F}, {4, 2}, {5, 4}, {12, 4}, {13, 5}, {13, 0x29}, {17, 200}, {18, 2}, {20, 13}, {21, 1}}},
      {0x2011, {1, 0, 0, 0, 0, 0, 0}, {{0, 2}}},
      {0x2014, {1, 0, 0, 0, 0}, {{0, 0}, {4, 0x20}}},
      {0x2024, {0xFB, 0, 0x48, 0x01}, {{0, 0x1A}, {0, 0xFC}, {2, 0x47}}},
      {0x2027, Packet(39, 0), {{0, 2}}},
      {0x2031, {0, 1, 1}, {{0, 4}, {1, 0}, {2, 8}}},
      {0x2036,
       advertising_set,
       {{0, 0xF0}, {1, 0x14}, {1, 0x03}, {3, 0x1F}, {6, 0x1F}, {9, 0}, {20, 2}, {22, 4}, {23, 16}}},
      {0x2037, {1, 3, 1, 2, 0, 0}, {{1, 5}, {2, 2}, {3, 1}}},
      {0x2039, {1, 1, 1, 0, 0, 0}, {{0, 2}, {1, 0}, {1, 2}}},
      {0x2041, {0, 0, 1, 1, 0x10, 0, 0x10, 0}, {{0, 4}, {1, 2}, {2, 0}, {2, 2}, {2, 5}, {3, 2}, {4, 0x0F}}},
      {0x2042, {0, 2, 1, 0, 1, 0}, {{0, 2}, {1, 3}, {2, 0}, {2, 200}}},
      {0x2043, extended_connect, {{0, 2}, {1, 4}, {2, 2}, {9, 0}, {9, 2}, {9, 3}, {10, 0x5F}, {14, 5}}},
  };
  for (const OutOfRange& command : commands) {
    for (const auto& [at, value] : command.bad) {
      Packet parameters = command.good;
      parameters.at(at) = value;
      EXPECT_EQ(0x12, StatusIn(host_.Command(command.opcode, parameters)))
          << std::hex << command.opcode << ": " << int{value} << " in byte " << at;
    }
    EXPECT_NE(0x12, StatusIn(host_.Command(command.opcode, command.good))) << std::hex << command.opcode;
    // What the command began ends here, and what it has sent is not for the next.
    host_.Send(kReset);
    Packet packet{};
    do packet = host_.Read();
    while (!packet.empty() && packet != Complete(kReset, {0}));
  }
}

// A feature is claimed if and only if the commands are there that belong to it.
TEST_F(BoardCommandsTest, VersionFeaturesAndCommandsFitOneAnother) {
  Play();
  const Packet version = host_.Command(0x1001);
  EXPECT_EQ(0x0C, version.at(7)) << "HCI 5.3";
  EXPECT_EQ(0x0C, version.at(10)) << "the link layer likewise";
  const Packet commands = host_.Command(0x1002);
  const Packet features = host_.Command(0x1003);
  const Packet le_features = host_.Command(0x2003);
  auto has = [](const Packet& mask, size_t bit) { return (mask.at(7 + bit / 8) >> bit % 8 & 1) != 0; };
  struct Rule {
    const Packet& features;
    size_t feature;
    std::vector<std::pair<size_t, size_t>> commands;  // octet and bit
  };
  const Rule rules[] = {
      {features, 2, {{2, 0}}},                                                   // encryption
      {features, 5, {{5, 0}}},                                                   // role switch
      {features, 7, {{4, 2}, {4, 3}}},                                           // sniff mode
      {features, 11, {{16, 3}}},                                                 // SCO links
      {features, 28, {{12, 5}}},                                                 // interlaced inquiry scan
      {features, 36, {{12, 1}}},                                                 // channel classification
      {features, 48, {{17, 0}, {17, 1}, {12, 7}}},                               // extended inquiry response
      {features, 51, {{17, 6}, {18, 7}, {19, 0}}},                               // simple pairing
      {features, 53, {{18, 2}, {18, 3}}},                                        // erroneous data reporting
      {features, 57, {{18, 0}, {18, 1}}},                                        // inquiry transmit power
      {features, 38, {{25, 2}, {24, 5}, {24, 6}}},                               // low energy
      {le_features, 0, {{27, 6}, {28, 0}, {28, 1}}},                             // encryption
      {le_features, 1, {{33, 4}, {33, 5}}},                                      // connection parameters request
      {le_features, 4, {{32, 4}, {32, 5}}},                                      // ping
      {le_features, 5, {{33, 6}, {33, 7}, {34, 0}, {35, 3}}},                    // data length
      {le_features, 6, {{34, 3}, {34, 7}, {35, 0}, {35, 1}, {35, 2}, {39, 2}}},  // privacy
      {le_features, 8, {{35, 4}, {35, 5}, {35, 6}}},                             // 2M
      {le_features, 12, {{36, 1}, {36, 2}, {36, 7}, {37, 5}, {37, 6}, {37, 7}, {38, 7}}},  // extended advertising
      {le_features, 13, {{37, 2}, {37, 4}, {38, 0}}},                                      // periodic advertising
  };
  for (const Rule& rule : rules) {
    for (const auto& [octet, bit] : rule.commands) {
      EXPECT_EQ(has(rule.features, rule.feature), has(commands, octet * 8 + bit))
          << (&rule.features == &features ? "feature " : "LE feature ") << rule.feature << ", command " << octet << '.'
          << bit;
    }
  }
  EXPECT_TRUE(has(le_features, 14)) << "the second channel selection algorithm, which extended advertising needs";
}

TEST_F(BoardCommandsTest, HasRoomForSixteenAdvertisingSets) {
  Play();
  EXPECT_EQ(Complete(0x203B, {0, 16}), host_.Command(0x203B));
  Packet parameters{0, 0x13, 0, 0x20, 0, 0, 0x20, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x7F, 1, 0, 1, 0, 0};
  for (; parameters[0] < 16; ++parameters[0]) EXPECT_EQ(Complete(0x2036, {0, 0}), host_.Command(0x2036, parameters));
  EXPECT_EQ(Complete(0x2036, {0x07}), host_.Command(0x2036, parameters)) << "one too many";
  EXPECT_EQ(Complete(0x2039, {0x42}), host_.Command(0x2039, {1, 1, 16, 0, 0, 0})) << "and unknown";
  EXPECT_EQ(Complete(0x203C, {0}), host_.Command(0x203C, {3}));
  EXPECT_EQ(Complete(0x2036, {0, 0}), host_.Command(0x2036, parameters));
  EXPECT_EQ(Complete(0x2039, {0}), host_.Command(0x2039, {1, 1, 16, 0, 0, 0}));
}

TEST_F(BoardCommandsTest, InquiryAnswersAsItsModeSays) {
  Play();
  const Packet headset{1, 4, 0, 0, 0x5A, 0x22, 0, 1, 0};
  const Packet rest[] = {{0, 0x04, 0x04, 0x24, 0, 0}, {0x04, 0x04, 0x24, 0, 0, 0xC9}, {0x04, 0x04, 0x24, 0, 0, 0xC9}};
  for (const uint8_t mode : {0, 1, 2}) {
    EXPECT_EQ(Complete(0x0C45, {0}), host_.Command(0x0C45, {mode}));
    EXPECT_EQ(Status(0x0401, 0), host_.Command(0x0401, {0x33, 0x8B, 0x9E, 4, 0}));
    Packet expected = headset;
    expected.insert(expected.end(), rest[mode].begin(), rest[mode].end());
    if (mode == 2) {
      for (const char c : std::string("\x08\x09Headset")) expected.push_back(static_cast<uint8_t>(c));
      expected.resize(255);
    }
    const Packet head{0x04, Packet{0x02, 0x22, 0x2F}[mode], static_cast<uint8_t>(expected.size())};
    expected.insert(expected.begin(), head.begin(), head.end());
    EXPECT_EQ(expected, host_.Read()) << "mode " << int{mode};
    EXPECT_EQ((Packet{0x04, 0x01, 1, 0}), host_.Read());
  }
}

TEST_F(BoardCommandsTest, ReadsBackWhatWasWrittenUntilReset) {
  Play();
  EXPECT_EQ(Complete(0x0C18, {0}), host_.Command(0x0C18, {0x34, 0x12}));
  EXPECT_EQ(Complete(0x0C17, {0, 0x34, 0x12}), host_.Command(0x0C17));
  host_.Command(kReset);
  EXPECT_EQ(Complete(0x0C17, {0, 0x00, 0x20}), host_.Command(0x0C17));
}

TEST_F(BoardCommandsTest, ScansAndConnects) {
  Play();
  EXPECT_EQ(Complete(0x200B, {0}), host_.Command(0x200B, {1, 0x10, 0, 0x10, 0, 0, 0}));
  EXPECT_EQ(Complete(0x200C, {0}), host_.Command(0x200C, {1, 1}));
  Packet peer;
  for (int i = 0; i < 5; ++i) {
    const Packet report = host_.Read();
    ASSERT_EQ(0x3E, report.at(1));
    ASSERT_EQ(report.size(), 3u + report[2]);
    ASSERT_EQ(i % 2 == 0 ? 0 : 4, report.at(5)) << "advertised, then the answer to an active scan, though it is empty";
    ASSERT_EQ(report.size(), 14u + report[13] + 2 - 1) << "length, data, RSSI";
    if (i == 0) peer.assign(report.begin() + 6, report.begin() + 13);  // address type and address
  }
  EXPECT_EQ((Packet{0x04, 0x3E, 16, 0x02, 1, 0x04, 0, 3, 0, 0, 0x5A, 0x22, 0, 4, 3, 3, 0x0F, 0x18, 0xB3}), host_.Read())
      << "what the door lock adds";
  EXPECT_EQ(Complete(0x200C, {0}), host_.Command(0x200C, {0, 0})) << "each was reported once";

  EXPECT_EQ(Status(0x200D, 0), host_.Command(0x200D, CreateConnection(peer)));
  const Packet connected = host_.Read();
  ASSERT_EQ((Packet{0x04, 0x3E, 19, 0x01, 0x00}), Packet(connected.begin(), connected.begin() + 5));
  EXPECT_EQ(peer, Packet(connected.begin() + 8, connected.begin() + 15));
  const uint8_t handle = connected[5];

  // An exchange of MTUs: credit and answer.
  host_.Write({0x02, handle, 0x00, 7, 0, 3, 0, 4, 0, 0x02, 0xF7, 0x00});
  EXPECT_EQ((Packet{0x04, 0x13, 5, 1, handle, 0, 1, 0}), host_.Read());
  EXPECT_EQ((Packet{0x02, handle, 0x20, 7, 0, 3, 0, 4, 0, 0x03, 23, 0}), host_.Read());
  EXPECT_EQ(Status(0x0406, 0), host_.Command(0x0406, {handle, 0, 0x13}));
  EXPECT_EQ((Packet{0x04, 0x05, 4, 0, handle, 0, 0x16}), host_.Read());
}

TEST_F(BoardCommandsTest, ConnectsToNobodyUntilItIsCancelled) {
  Play();
  const Packet create = CreateConnection({0, 0x99, 0, 0, 0, 0, 0});
  EXPECT_EQ(Status(0x200D, 0), host_.Command(0x200D, create));
  EXPECT_THAT(host_.Read(kSoonMs), IsEmpty());
  EXPECT_EQ(Status(0x200D, 0x0C), host_.Command(0x200D, create)) << "one at a time";
  EXPECT_EQ(Complete(0x200E, {0}), host_.Command(0x200E));
  EXPECT_EQ(0x02, host_.Read().at(4));
}

}  // namespace
}  // namespace bthal::test
