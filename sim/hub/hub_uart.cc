#include "sim/hub/hub_uart.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "sim/hub/hub_terminal.h"
#include "sim/wire/h4.h"

namespace bthal::sim {
namespace {

constexpr char kUart[] = "/dev/ttySAC16";
constexpr char kPowerNode[] = "/sys/class/rfkill/rfkill0/state";
constexpr char kWakeNode[] = "/proc/bluetooth/sleep/btwrite";
constexpr auto kAwakeFor = std::chrono::milliseconds(400);
constexpr size_t kLongestHeader = 4;
constexpr uint32_t kFirstSpeed = 115200;

bool CanBegin(uint8_t type) { return IsHostPacketType(type) ? type != kH4Command : type == kH4Event; }

}  // namespace

bool HubUart::WriteNode(const char* node, bool on) const {
  const Fd fd(open((root_ + node).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  return fd.ok() && write(fd.get(), on ? "1" : "0", 1) == 1;
}

bool HubUart::Open() {
  Close();
  tty_.Reset(open((root_ + kUart).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  return tty_.ok() && MakeRaw(tty_.get()) && SetSpeed(kFirstSpeed);
}

void HubUart::Close() {
  tty_.Reset();
  waiting_.clear();
  received_.clear();
}

bool HubUart::SetSpeed(uint32_t bits_per_second) const {
  return tty_.ok() && SetTerminalSpeed(tty_.get(), bits_per_second);
}

bool HubUart::SetPower(bool on) const { return WriteNode(kPowerNode, on); }

void HubUart::SetWakeLine(bool high) {
  if (wake_line_ == high) return;
  wake_line_ = high;
  WriteNode(kWakeNode, high);
}

void HubUart::SetLowPower(bool on, Clock::time_point now) {
  low_power_ = on;
  idle_since_ = now;
  SetWakeLine(on);
}

void HubUart::Write(Bytes bytes, std::function<void()> sent, Clock::time_point now) {
  if (low_power_) SetWakeLine(true);
  idle_since_ = now;
  waiting_.push_back({std::move(bytes), 0, std::move(sent)});
  Flush(now);
}

void HubUart::Flush(Clock::time_point now) {
  while (!waiting_.empty()) {
    Outgoing& next = waiting_.front();
    const ssize_t count =
        TEMP_FAILURE_RETRY(write(tty_.get(), next.bytes.data() + next.written, next.bytes.size() - next.written));
    if (count < 0) return;
    idle_since_ = now;
    next.written += static_cast<size_t>(count);
    if (next.written < next.bytes.size()) return;
    const std::function<void()> sent = std::move(next.sent);
    waiting_.pop_front();
    if (sent) sent();
  }
  if (low_power_ && now - idle_since_ >= kAwakeFor) SetWakeLine(false);
}

std::optional<Clock::time_point> HubUart::NextLook() const {
  if (!low_power_ || !wake_line_ || !waiting_.empty()) return std::nullopt;
  return idle_since_ + kAwakeFor;
}

void HubUart::Read(const OnPacket& on_packet) {
  uint8_t buffer[4096];
  const ssize_t count = TEMP_FAILURE_RETRY(read(tty_.get(), buffer, sizeof(buffer)));
  if (count < 0 && errno == EAGAIN) return;
  if (count <= 0) return Close();
  received_.insert(received_.end(), buffer, buffer + count);
  size_t at = 0;
  while (at < received_.size()) {
    const uint8_t type = received_[at];
    if (!CanBegin(type)) {
      // As it came: what it is, is the service's to judge.
      on_packet(type, {});
      ++at;
      continue;
    }
    const size_t size = H4PacketSize(type, Part(received_, at + 1, kLongestHeader));
    if (size == 0 || received_.size() - at - 1 < size) break;
    on_packet(type, Part(received_, at + 1, size));
    at += 1 + size;
  }
  received_.erase(received_.begin(), received_.begin() + static_cast<ptrdiff_t>(at));
}

}  // namespace bthal::sim
