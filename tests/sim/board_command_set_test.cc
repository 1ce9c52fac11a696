// What the virtual board says that it obeys, beside what it obeys.
#include "support/board_host.h"
#include "support/test.h"

namespace bthal::test {
namespace {

// Where the mask has its bits for commands whose opcodes follow one another: octet and bit of the first, its opcode,
// and how many there are. The bits in between are of no command, or of one that no host uses now.
struct Run {
  size_t octet;
  size_t bit;
  uint16_t opcode;
  uint16_t count;
};
constexpr Run kRuns[] = {
    {0, 0, 0x0401, 15},  {1, 7, 0x0411, 1},   {2, 0, 0x0413, 1},  {2, 1, 0x0415, 1},  {2, 2, 0x0417, 1},
    {2, 3, 0x0419, 5},   {3, 0, 0x041F, 2},   {4, 1, 0x0801, 1},  {4, 2, 0x0803, 5},  {4, 7, 0x0809, 1},
    {5, 0, 0x080B, 6},   {5, 6, 0x0C01, 1},   {5, 7, 0x0C03, 1},  {6, 0, 0x0C05, 1},  {6, 1, 0x0C08, 4},
    {6, 5, 0x0C0D, 1},   {6, 6, 0x0C11, 31},  {10, 5, 0x0C31, 1}, {10, 6, 0x0C33, 1}, {10, 7, 0x0C35, 11},
    {12, 4, 0x0C42, 8},  {14, 3, 0x1001, 5},  {15, 0, 0x1007, 1}, {15, 1, 0x1009, 1}, {15, 2, 0x1401, 3},
    {15, 5, 0x1405, 3},  {16, 0, 0x1801, 3},  {16, 3, 0x0428, 3}, {17, 0, 0x0C51, 3}, {17, 4, 0x0811, 1},
    {17, 5, 0x0C55, 7},  {18, 7, 0x042B, 6},  {19, 5, 0x1804, 1}, {19, 6, 0x0C5F, 1}, {19, 7, 0x0433, 1},
    {20, 2, 0x0C60, 1},  {20, 3, 0x0434, 1},  {20, 4, 0x1408, 1}, {22, 2, 0x0C63, 1}, {24, 5, 0x0C6C, 2},
    {25, 0, 0x2001, 3},  {25, 4, 0x2005, 27}, {29, 3, 0x043D, 2}, {29, 5, 0x100B, 1}, {32, 2, 0x0C79, 6},
    {33, 4, 0x2020, 47}, {41, 5, 0x2060, 1}};

std::map<size_t, uint16_t> OpcodesOfBits() {
  std::map<size_t, uint16_t> opcodes;
  for (const Run& run : kRuns) {
    for (uint16_t i = 0; i < run.count; ++i) opcodes[8 * run.octet + run.bit + i] = run.opcode + i;
  }
  return opcodes;
}

class BoardCommandSetTest : public BoardTest {
 protected:
  // The status in the answer to a command, which may be one that events precede.
  uint8_t StatusOf(uint16_t opcode, const Packet& parameters = {}) {
    host_.Send(opcode, parameters);
    for (;;) {
      const Packet answer = host_.Read();
      if (answer.empty()) throw std::runtime_error("no answer");
      if (answer[1] == 0x0E && answer[4] + answer[5] * 256 == opcode) return answer.at(6);
      if (answer[1] == 0x0F && answer[5] + answer[6] * 256 == opcode) return answer.at(3);
    }
  }
};

// A command is listed if and only if it is answered with anything but Unknown Command.
TEST_F(BoardCommandSetTest, ListsWhatItAnswersAndNothingElse) {
  Play();
  const Packet mask = host_.Command(0x1002);
  ASSERT_EQ(7u + 64u, mask.size());
  const std::map<size_t, uint16_t> opcodes = OpcodesOfBits();
  std::set<uint16_t> listed;
  for (size_t bit = 0; bit < size_t{64} * 8; ++bit) {
    if ((mask[7 + bit / 8] >> bit % 8 & 1) == 0) continue;
    ASSERT_TRUE(opcodes.contains(bit)) << "octet " << bit / 8 << " bit " << bit % 8;
    listed.insert(opcodes.at(bit));
  }
  for (const uint16_t group : {1, 2, 3, 4, 5, 6, 8}) {
    for (uint16_t command = 1; command < 0x90; ++command) {
      const auto opcode = static_cast<uint16_t>(group << 10 | command);
      EXPECT_EQ(listed.count(opcode) != 0, StatusOf(opcode) != 0x01) << std::hex << opcode;
    }
  }
}

TEST_F(BoardCommandSetTest, WhatNeedsALinkSaysThatThereIsNone) {
  Play();
  const std::pair<uint16_t, size_t> commands[] = {
      {0x0409, 7}, {0x040F, 4},  {0x0411, 2},  {0x0413, 3}, {0x041B, 2}, {0x041C, 3}, {0x041D, 2},
      {0x041F, 2}, {0x0804, 2},  {0x0809, 2},  {0x080B, 7}, {0x080C, 2}, {0x080D, 4}, {0x0C2D, 3},
      {0x0C36, 2}, {0x0C37, 4},  {0x1403, 2},  {0x1405, 2}, {0x1406, 2}, {0x1408, 2}, {0x2015, 2},
      {0x2016, 2}, {0x2019, 28}, {0x201A, 18}, {0x201B, 2}, {0x2021, 3}, {0x2030, 2},
  };
  for (const auto& [opcode, size] : commands) EXPECT_EQ(0x02, StatusOf(opcode, Packet(size, 0))) << std::hex << opcode;
  EXPECT_EQ(0x02, StatusOf(0x1407, {0, 0, 1}));
  EXPECT_EQ(0x00, StatusOf(0x1407, {0, 0, 0})) << "the clock of its own";
  for (const uint16_t owed : {0x040C, 0x042C, 0x042D, 0x042F, 0x0433}) {
    EXPECT_EQ(0x0C, StatusOf(owed, Packet(6, 0))) << std::hex << owed << ": nobody asked";
  }
}

// The elliptic curve's and AES's own published examples.
TEST_F(BoardCommandSetTest, ComputesAsEverybodyDoes) {
  Play();
  Packet asked(16, 0);
  for (const uint8_t byte :
       {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}) {
    asked.insert(asked.begin() + 16, byte);
  }
  for (uint8_t i = 0; i < 16; ++i) asked[i] = static_cast<uint8_t>(15 - i);
  EXPECT_EQ(Complete(0x2017, {0x00, 0x5A, 0xC5, 0xB4, 0x70, 0x80, 0xB7, 0xCD, 0xD8, 0x30, 0x04, 0x7B, 0x6A, 0xD8, 0xE0,
                              0xC4, 0x69}),
            host_.Command(0x2017, asked));

  EXPECT_EQ(Status(0x2026, 0x0C), host_.Command(0x2026, Packet(64, 0))) << "no key yet";
  EXPECT_EQ(Status(0x2025, 0x00), host_.Command(0x2025));
  const Packet own = host_.Read();
  ASSERT_EQ((Packet{0x04, 0x3E, 66, 0x08, 0x00}), Packet(own.begin(), own.begin() + 5));
  // A point that is on the curve, its own; and one that is not.
  Packet point(own.begin() + 5, own.end());
  EXPECT_EQ(Status(0x2026, 0x00), host_.Command(0x2026, point));
  const Packet shared = host_.Read();
  EXPECT_EQ((Packet{0x04, 0x3E, 34, 0x09, 0x00}), Packet(shared.begin(), shared.begin() + 5));
  point[0] ^= 1;
  EXPECT_EQ(Status(0x2026, 0x00), host_.Command(0x2026, point));
  const Packet refused = host_.Read();
  EXPECT_EQ((Packet{0x09, 0x12, 0xFF}), Packet(refused.begin() + 3, refused.begin() + 6));
}

}  // namespace
}  // namespace bthal::test
