#include "support/board_host.h"

#include <termios.h>

namespace bthal::test {
namespace {

// The size of the packet that `bytes` begin with, once it can be told; 0 before.
size_t WholeSize(const Packet& bytes) {
  const std::map<uint8_t, size_t> headers = {{0x02, 5}, {0x03, 4}, {0x04, 3}, {0x05, 5}, {0x70, 5}};
  const size_t header = headers.at(bytes.at(0));
  if (bytes.size() < header) return 0;
  if (header < 5) return header + bytes[header - 1];
  return header + bytes[3] + (bytes[0] == 0x05 ? bytes[4] & 0x3F : bytes[4]) * 256;
}

}  // namespace

void BoardHost::WriteNode(const std::string& device_path, const std::string& text) const {
  const unique_fd node(open((root_.path() + device_path).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!android::base::WriteStringToFd(text, node)) throw std::runtime_error("cannot write " + device_path);
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
  fd_.reset(open((root_.path() + "/dev/ttySAC16").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!fd_.ok()) throw std::runtime_error("cannot open the terminal");
  tcflush(fd(), TCIOFLUSH);
  SetSpeed(115200);
}

void BoardHost::Close() {
  fd_.reset();
  buffer_.clear();
}

void BoardHost::SetSpeed(uint32_t bits_per_second) const {
  termios attributes{};
  tcgetattr(fd(), &attributes);
  cfmakeraw(&attributes);
  attributes.c_cflag |= CRTSCTS;
  const std::map<uint32_t, speed_t> speeds = {{115200, B115200}, {3000000, B3000000}, {4000000, B4000000}};
  cfsetspeed(&attributes, speeds.at(bits_per_second));
  tcsetattr(fd(), TCSANOW, &attributes);
  tcflush(fd(), TCIOFLUSH);
}

void BoardHost::Write(const Packet& bytes) const {
  if (write(fd(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the terminal did not take all");
  }
}

Packet BoardHost::ReadRaw(int patience_ms) const {
  pollfd ready{fd(), POLLIN, 0};
  if (poll(&ready, 1, patience_ms) <= 0) return {};
  Packet bytes(4096);
  const ssize_t count = read(fd(), bytes.data(), bytes.size());
  bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  return bytes;
}

Packet BoardHost::Read(int patience_ms) {
  for (;;) {
    const size_t size = buffer_.empty() ? 0 : WholeSize(buffer_);
    if (size != 0 && buffer_.size() >= size) {
      Packet packet(buffer_.begin() + static_cast<ptrdiff_t>(size), buffer_.end());
      packet.swap(buffer_);
      packet.resize(size);
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
  return Joined(
      {{0x01, static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8), static_cast<uint8_t>(parameters.size())},
       parameters});
}

Packet Status(uint16_t opcode, uint8_t status) {
  return {0x04, 0x0F, 4, status, 1, static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8)};
}

Packet Complete(uint16_t opcode, const Packet& return_parameters) {
  const auto size = static_cast<uint8_t>(3 + return_parameters.size());
  Packet packet{0x04, 0x0E, size, 1, static_cast<uint8_t>(opcode), static_cast<uint8_t>(opcode >> 8)};
  packet.insert(packet.end(), return_parameters.begin(), return_parameters.end());
  return packet;
}

std::vector<Packet> Records(const std::string& content) {
  std::vector<Packet> records;
  for (size_t at = 0; at + 3 <= content.size();) {
    const size_t size = 3 + static_cast<uint8_t>(content[at + 2]);
    const std::string record = "\x01" + content.substr(at, size);
    records.emplace_back(record.begin(), record.end());
    at += size;
  }
  return records;
}

Board& BoardTest::Start(sim::BoardOptions options) {
  board_ = std::make_unique<Board>(std::move(options));
  std::string error;
  EXPECT_TRUE(board_->Start(&error)) << error;
  return *board_;
}

Board& BoardTest::Play(sim::BoardOptions options) {
  Start(std::move(options));
  host_.PowerOn();
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));
  return *board_;
}

}  // namespace bthal::test
