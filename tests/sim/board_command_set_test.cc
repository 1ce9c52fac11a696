// What the virtual board says that it obeys, beside what it obeys.
#include "support/board_host.h"
#include "support/test.h"

namespace bthal::test {
namespace {

// Commands in the order of their bits, from bit 0 of the octet on; 0: a bit without one, or one that no host uses now.
const std::map<size_t, std::vector<uint16_t>> kOctets = {
    {0, {0x0401, 0x0402, 0x0403, 0x0404, 0x0405, 0x0406, 0x0407, 0x0408}},
    {1, {0x0409, 0x040A, 0x040B, 0x040C, 0x040D, 0x040E, 0x040F, 0x0411}},
    {2, {0x0413, 0x0415, 0x0417, 0x0419, 0x041A, 0x041B, 0x041C, 0x041D}},
    {3, {0x041F, 0x0420}},
    {4, {0, 0x0801, 0x0803, 0x0804, 0x0805, 0x0806, 0x0807, 0x0809}},
    {5, {0x080B, 0x080C, 0x080D, 0x080E, 0x080F, 0x0810, 0x0C01, 0x0C03}},
    {6, {0x0C05, 0x0C08, 0x0C09, 0x0C0A, 0x0C0B, 0x0C0D, 0x0C11, 0x0C12}},
    {7, {0x0C13, 0x0C14, 0x0C15, 0x0C16, 0x0C17, 0x0C18, 0x0C19, 0x0C1A}},
    {8, {0x0C1B, 0x0C1C, 0x0C1D, 0x0C1E, 0x0C1F, 0x0C20, 0x0C21, 0x0C22}},
    {9, {0x0C23, 0x0C24, 0x0C25, 0x0C26, 0x0C27, 0x0C28, 0x0C29, 0x0C2A}},
    {10, {0x0C2B, 0x0C2C, 0x0C2D, 0x0C2E, 0x0C2F, 0x0C31, 0x0C33, 0x0C35}},
    {11, {0x0C36, 0x0C37, 0x0C38, 0x0C39, 0x0C3A, 0x0C3B, 0x0C3C, 0x0C3D}},
    {12, {0x0C3E, 0x0C3F, 0, 0, 0x0C42, 0x0C43, 0x0C44, 0x0C45}},
    {13, {0x0C46, 0x0C47, 0x0C48, 0x0C49}},
    {14, {0, 0, 0, 0x1001, 0x1002, 0x1003, 0x1004, 0x1005}},
    {15, {0x1007, 0x1009, 0x1401, 0x1402, 0x1403, 0x1405, 0x1406, 0x1407}},
    {16, {0x1801, 0x1802, 0x1803, 0x0428, 0x0429, 0x042A}},
    {17, {0x0C51, 0x0C52, 0x0C53, 0, 0x0811, 0x0C55, 0x0C56, 0x0C57}},
    {18, {0x0C58, 0x0C59, 0x0C5A, 0x0C5B, 0, 0, 0, 0x042B}},
    {19, {0x042C, 0x042D, 0x042E, 0x042F, 0x0430, 0x1804, 0x0C5F, 0x0433}},
    {20, {0, 0, 0x0C60, 0x0434, 0x1408}},
    {22, {0, 0, 0x0C63}},
    {24, {0, 0, 0, 0, 0, 0x0C6C, 0x0C6D}},
    {25, {0x2001, 0x2002, 0x2003, 0, 0x2005, 0x2006, 0x2007, 0x2008}},
    {26, {0x2009, 0x200A, 0x200B, 0x200C, 0x200D, 0x200E, 0x200F, 0x2010}},
    {27, {0x2011, 0x2012, 0x2013, 0x2014, 0x2015, 0x2016, 0x2017, 0x2018}},
    {28, {0x2019, 0x201A, 0x201B, 0x201C, 0x201D, 0x201E, 0x201F}},
    {29, {0, 0, 0, 0x043D, 0x043E, 0x100B}},
    {32, {0, 0, 0x0C79, 0x0C7A, 0x0C7B, 0x0C7C, 0x0C7D, 0x0C7E}},
    {33, {0, 0, 0, 0, 0x2020, 0x2021, 0x2022, 0x2023}},
    {34, {0x2024, 0x2025, 0x2026, 0x2027, 0x2028, 0x2029, 0x202A, 0x202B}},
    {35, {0x202C, 0x202D, 0x202E, 0x202F, 0x2030, 0x2031, 0x2032, 0x2033}},
    {36, {0x2034, 0x2035, 0x2036, 0x2037, 0x2038, 0x2039, 0x203A, 0x203B}},
    {37, {0x203C, 0x203D, 0x203E, 0x203F, 0x2040, 0x2041, 0x2042, 0x2043}},
    {38, {0x2044, 0x2045, 0x2046, 0x2047, 0x2048, 0x2049, 0x204A, 0x204B}},
    {39, {0x204C, 0x204D, 0x204E}},
    {41, {0, 0, 0, 0, 0, 0x2060}},
};

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
  std::set<uint16_t> listed;
  for (size_t bit = 0; bit < size_t{64} * 8; ++bit) {
    if ((mask[7 + bit / 8] >> bit % 8 & 1) == 0) continue;
    const auto octet = kOctets.find(bit / 8);
    ASSERT_TRUE(octet != kOctets.end() && bit % 8 < octet->second.size() && octet->second[bit % 8] != 0)
        << "octet " << bit / 8 << " bit " << bit % 8;
    listed.insert(octet->second[bit % 8]);
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
  const Packet times{6, 0, 6, 0, 0, 0, 0x0A, 0, 0, 0, 0, 0};
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
