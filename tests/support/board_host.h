// The host's side of the virtual board, played by hand: nodes, terminal and packets, without a line of the service.
#pragma once

#include "support/board_journal.h"

namespace bthal::test {

using Packet = Bytes;  // H4: type byte first

inline constexpr uint16_t kReset = 0x0C03;
inline constexpr uint16_t kReadLocalName = 0x0C14;
inline constexpr uint16_t kReadBdAddr = 0x1009;
inline constexpr uint16_t kWriteBdAddr = 0xFC01;
inline constexpr uint16_t kUpdateBaudRate = 0xFC18;
inline constexpr uint16_t kSetSleepMode = 0xFC27;
// Of Set Sleep Mode, as the service sends them.
inline const Packet kSleepParameters{0x01, 0x18, 0x18, 0x01, 0x01, 0x01, 0x01, 0, 0, 0, 0, 0};
inline constexpr uint16_t kMinidriver = 0xFC2E;
inline constexpr uint16_t kWriteRam = 0xFC4C;
inline constexpr uint16_t kLaunchRam = 0xFC4E;
inline constexpr uint16_t kVersion = 0xFC79;
inline constexpr uint16_t kCheckOtp = 0xFE2F;
inline constexpr uint16_t kDownloadConfig = 0xFE72;
// So long nothing comes that is not to come.
inline constexpr int kSoonMs = 100;

class BoardHost {
 public:
  explicit BoardHost(const TempRoot& root) : root_(root) {}

  // Writes to a node as a driver's user does.
  void WriteNode(const std::string& device_path, const std::string& text) const;
  // Switches the power and opens the terminal raw at 115200.
  void PowerOn();
  void PowerOff();
  void Open();
  void Close();
  void SetSpeed(uint32_t bits_per_second) const;

  void Write(const Packet& bytes) const;
  // The next whole packet; empty when none has come within `patience_ms`.
  Packet Read(int patience_ms = 10000);
  // The next bytes as they come in one read; empty at end of file, or when nothing came.
  Packet ReadRaw(int patience_ms = 10000) const;
  // Sends a command and returns the next packet.
  Packet Command(uint16_t opcode, const Packet& parameters = {});
  void Send(uint16_t opcode, const Packet& parameters = {}) const;

  // Steps of a bring-up. Each fails the test where the board does.
  void ChangeSpeed(uint32_t bits_per_second);
  void Download(const std::string& file, bool fast);
  // From power-on to a running patch at 4 Mbit/s.
  void BringUp(const std::string& file = "QNL_188_U.hcd");

  int fd() const { return fd_.get(); }

 private:
  const TempRoot& root_;
  unique_fd fd_;
  Packet buffer_;
};

// Options for a board in `root` with a short patch.
sim::BoardOptions SmallBoard(const TempRoot& root);
Packet CommandPacket(uint16_t opcode, const Packet& parameters = {});
// The Command Status, or the Command Complete, that grants one more command.
Packet Status(uint16_t opcode, uint8_t status);
Packet Complete(uint16_t opcode, const Packet& return_parameters);
// The records of a patch file, as command packets.
std::vector<Packet> Records(const std::string& content);

// A board on a root of its own, whose host the test plays.
class BoardTest : public testing::Test {
 protected:
  Board& Start(sim::BoardOptions options);
  Board& Start() { return Start(SmallBoard(root_)); }
  // Switches it on as well, and resets it.
  Board& Play(sim::BoardOptions options);
  Board& Play() { return Play(SmallBoard(root_)); }

  TempRoot root_;
  std::unique_ptr<Board> board_;
  BoardHost host_{root_};
};

}  // namespace bthal::test
