#include "sim/wire/line.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <utility>

#include "sim/wire/terminal_speed.h"

namespace bthal::sim {
namespace {

constexpr size_t kReadAtOnce = 65536;
// A start bit, eight data bits, a stop bit.
constexpr uint64_t kBitsPerByte = 10;
// With this much waiting for the host, nothing more is read from it, as a UART drops its RTS; but only for so long,
// because a host that writes before it reads on would otherwise wait for us as we wait for it.
constexpr size_t kThrottleAt = size_t{256} * 1024;
constexpr auto kThrottleFor = std::chrono::milliseconds(20);

}  // namespace

bool Line::Open(const std::string& link, std::string* error) { return pty_.Open(link, error); }

void Line::HangUp() {
  Drop();
  arriving_ = {};
  arrival_.reset();
  std::string error;
  if (!pty_.HangUp(&error)) journal_->Record(WireEvent::kProtocolError, 0, "the UART does not come back: " + error);
}

uint32_t Line::ReadHostSpeed() const { return TerminalSpeed(pty_.board_end()).value_or(host_speed_); }

void Line::NoteHostSpeed(uint32_t speed) {
  if (speed == host_speed_) return;
  host_speed_ = speed;
  journal_->Record(WireEvent::kHostSpeed, speed);
}

void Line::SetSpeed(uint32_t speed) {
  if (speed == speed_) return;
  speed_ = speed;
  journal_->Record(WireEvent::kSpeed, speed);
}

Clock::duration Line::WireTime(size_t bytes) const {
  return std::chrono::nanoseconds(bytes * kBitsPerByte * 1'000'000'000 / speed_);
}

size_t Line::PacedChunk() const {
  constexpr auto kTime = std::chrono::milliseconds(2);
  return std::max<size_t>(1, static_cast<size_t>(kTime / WireTime(1)));
}

bool Line::Throttled(Clock::time_point now) const { return waiting_ > kThrottleAt && now - progress_ < kThrottleFor; }

short Line::PollEvents(Clock::time_point now) const {
  short events = 0;
  if (!arrival_ && !Throttled(now)) events |= POLLIN;
  if (blocked_) events |= POLLOUT;
  return events;
}

std::optional<Clock::time_point> Line::NextLook(Clock::time_point now) const {
  std::optional<Clock::time_point> next = arrival_;
  auto also = [&](Clock::time_point at) { next = next ? std::min(*next, at) : at; };
  if (Throttled(now)) also(progress_ + kThrottleFor);
  if (held_ || (queue_.empty() && chunk_.packets == 0)) return next;
  if (chunk_due_) also(*chunk_due_);
  if (merge_until_) also(*merge_until_);
  if (split_packets_ != 0 && !blocked_) also(next_piece_);
  return next;
}

Arrived Line::ReadPty(size_t limit) const {
  Arrived arrived;
  Bytes& bytes = arrived.bytes;
  uint8_t buffer[4096];
  while (bytes.size() < limit) {
    const size_t room = std::min(sizeof(buffer), limit - bytes.size());
    const ssize_t count = TEMP_FAILURE_RETRY(read(pty_.board_end(), buffer, room));
    if (count <= 0) break;
    bytes.insert(bytes.end(), buffer, buffer + count);
    if (static_cast<size_t>(count) < room) break;  // that was all
  }
  if (!bytes.empty()) arrived.host_speed = ReadHostSpeed();
  return arrived;
}

Arrived Line::Receive(Clock::time_point now) {
  if (!pace_) return Throttled(now) ? Arrived() : ReadPty(kReadAtOnce);
  Arrived arrived;
  Clock::time_point start = now;
  if (arrival_) {
    if (now < *arrival_) return {};
    // What is there already followed directly on the wire.
    start = *arrival_;
    answers_since_ = arrival_;
    arrived = std::exchange(arriving_, {});
    arrival_.reset();
  }
  if (!Throttled(now)) {
    arriving_ = ReadPty(PacedChunk());
    if (!arriving_.bytes.empty()) arrival_ = start + WireTime(arriving_.bytes.size());
  }
  return arrived;
}

Bytes Line::Hear(Arrived arrived) {
  if (arrived.bytes.empty()) return {};
  NoteHostSpeed(arrived.host_speed);
  if (arrived.host_speed == speed_) return std::move(arrived.bytes);
  journal_->Record(WireEvent::kLostBytes, arrived.bytes.size(),
                   "the host sends at " + std::to_string(arrived.host_speed) + " bit/s, the controller listens at " +
                       std::to_string(speed_));
  return {};
}

}  // namespace bthal::sim
