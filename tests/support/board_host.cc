#include "support/board_host.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace bthal::test {
namespace {

size_t WholeSize(const Packet& bytes) {
  auto at = [&](size_t i) -> size_t { return i < bytes.size() ? bytes[i] : 0; };
  switch (at(0)) {
    case 0x04:
      return bytes.size() < 3 ? 0 : 3 + at(2);
    case 0x03:
      return bytes.size() < 4 ? 0 : 4 + at(3);
    case 0x02:
    case 0x70:
      return bytes.size() < 5 ? 0 : 5 + at(3) + at(4) * 256;
    case 0x05:
      return bytes.size() < 5 ? 0 : 5 + at(3) + at(4) % 64 * 256;
    default:
      throw std::runtime_error("the board sent packet type " + std::to_string(at(0)));
  }
}

speed_t TerminalSpeed(uint32_t bits_per_second) {
  switch (bits_per_second) {
    case 115200:
      return B115200;
    case 3000000:
      return B3000000;
    case 4000000:
      return B4000000;
    default:
      throw std::runtime_error("no such terminal speed");
  }
}

}  // namespace

BoardHost::~BoardHost() { Close(); }

void BoardHost::WriteNode(const std::string& device_path, const std::string& text) const {
  const int fd = open((root_.path() + device_path).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("cannot open " + device_path);
  const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  if (!written) throw std::runtime_error("cannot write " + device_path);
}

void BoardHost::PowerOn() {
  WriteNode("/sys/class/rfkill/rfkill0/state", "1");
  Open();
}

void BoardHost::PowerOff() {
  Close();
  WriteNode("/sys/class/rfkill/rfkill0/state", "0");
}

void BoardHost::Open() {
  Close();
  fd_ = open((root_.path() + "/dev/ttySAC16").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd_ < 0) throw std::runtime_error("cannot open the terminal");
  tcflush(fd_, TCIOFLUSH);
  SetSpeed(115200);
}

void BoardHost::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  buffer_.clear();
}

void BoardHost::SetSpeed(uint32_t bits_per_second) const {
  termios attributes{};
  tcgetattr(fd_, &attributes);
  cfmakeraw(&attributes);
  attributes.c_cflag |= CRTSCTS;
  cfsetspeed(&attributes, TerminalSpeed(bits_per_second));
  tcsetattr(fd_, TCSANOW, &attributes);
  tcflush(fd_, TCIOFLUSH);
}

void BoardHost::Write(const Packet& bytes) const {
  if (write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the terminal did not take all");
  }
}

Packet BoardHost::ReadRaw(int patience_ms) const {
  pollfd ready{fd_, POLLIN, 0};
  if (poll(&ready, 1, patience_ms) <= 0) return {};
  Packet bytes(4096);
  const ssize_t count = read(fd_, bytes.data(), bytes.size());
  bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  return bytes;
}

Packet BoardHost::Read(int patience_ms) {
  for (;;) {
    const size_t size = buffer_.empty() ? 0 : WholeSize(buffer_);
    if (size != 0 && buffer_.size() >= size) {
      const Packet packet(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(size));
      buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(size));
      return packet;
    }
    const Packet more = ReadRaw(patience_ms);
    if (more.empty()) return {};
    buffer_.insert(buffer_.end(), more.begin(), more.end());
  }
}

void BoardHost::Send(uint16_t opcode, const Packet& parameters) const { Write(CommandPacket(opcode, parameters)); }

Packet BoardHost::Command(uint16_t opcode, const Packet& parameters) {
  Send(opcode, parameters);
  return Read();
}

void BoardHost::ChangeSpeed(uint32_t bits_per_second) {
  Packet parameters{0, 0};
  for (int i = 0; i < 4; ++i) parameters.push_back(static_cast<uint8_t>(bits_per_second >> 8 * i));
  ASSERT_EQ(Complete(kUpdateBaudRate, {0}), Command(kUpdateBaudRate, parameters));
  SetSpeed(bits_per_second);
}

void BoardHost::Download(const std::string& file, bool fast) {
  const std::vector<Packet> records = Records(root_.Read("/vendor/firmware/qnlr/" + file));
  ASSERT_FALSE(records.empty()) << file;
  if (fast) {
    ASSERT_EQ(Complete(kDownloadConfig, {0}), Command(kDownloadConfig, {0, 1}));
  }
  ASSERT_EQ(Complete(kMinidriver, {0}), Command(kMinidriver));
  for (const Packet& record : records) {
    Write(record);
    const auto opcode = static_cast<uint16_t>(record[1] | record[2] << 8);
    if (!fast || opcode == kLaunchRam) {
      ASSERT_EQ(Complete(opcode, {0}), Read());
    }
  }
  SetSpeed(115200);
}

void BoardHost::BringUp(const std::string& file) {
  PowerOn();
  ASSERT_EQ(Complete(kReset, {0}), Command(kReset));
  ASSERT_NO_FATAL_FAILURE(ChangeSpeed(4000000));
  ASSERT_NO_FATAL_FAILURE(Download(file, true));
}

sim::BoardOptions SmallBoard(const TempRoot& root) {
  sim::BoardOptions options;
  options.root = root.path();
  options.patch_records = 12;
  // A launched patch answers at once, so that no test needs to wait for it.
  options.patch_boots_in = std::chrono::milliseconds(0);
  return options;
}

Packet CommandPacket(uint16_t opcode, const Packet& parameters) {
  Packet packet{0x01, static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8),
                static_cast<uint8_t>(parameters.size())};
  packet.insert(packet.end(), parameters.begin(), parameters.end());
  return packet;
}

Packet Status(uint16_t opcode, uint8_t status) {
  return {0x04, 0x0F, 4, status, 1, static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8)};
}

Packet Complete(uint16_t opcode, const Packet& return_parameters) {
  Packet packet{0x04,
                0x0E,
                static_cast<uint8_t>(3 + return_parameters.size()),
                1,
                static_cast<uint8_t>(opcode),
                static_cast<uint8_t>(opcode >> 8)};
  packet.insert(packet.end(), return_parameters.begin(), return_parameters.end());
  return packet;
}

std::vector<Packet> Records(const std::string& content) {
  std::vector<Packet> records;
  for (size_t at = 0; at + 3 <= content.size();) {
    const size_t size = 3 + static_cast<uint8_t>(content[at + 2]);
    Packet record{0x01};
    record.insert(record.end(), content.begin() + static_cast<ptrdiff_t>(at),
                  content.begin() + static_cast<ptrdiff_t>(std::min(at + size, content.size())));
    records.push_back(record);
    at += size;
  }
  return records;
}

size_t Count(const sim::Board& board, sim::WireEvent event) { return Texts(board, event).size(); }

bool Await(const sim::Board& board, sim::WireEvent event, size_t count) {
  auto enough = [&](const std::vector<sim::JournalEntry>& entries) {
    return static_cast<size_t>(std::count_if(entries.begin(), entries.end(),
                                             [&](const sim::JournalEntry& e) { return e.event == event; })) >= count;
  };
  return board.WaitFor(enough, std::chrono::seconds(20));
}

std::vector<std::string> Texts(const sim::Board& board, sim::WireEvent event) {
  std::vector<std::string> texts;
  for (const sim::JournalEntry& entry : board.Journal()) {
    if (entry.event == event) texts.push_back(entry.text);
  }
  return texts;
}

sim::Board& BoardTest::Start(sim::BoardOptions options) {
  board_ = std::make_unique<sim::Board>(std::move(options));
  std::string error;
  EXPECT_TRUE(board_->Start(&error)) << error;
  return *board_;
}

sim::Board& BoardTest::Play(sim::BoardOptions options) {
  Start(std::move(options));
  host_.PowerOn();
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  return *board_;
}

}  // namespace bthal::test
