#include "sim/wire/line.h"

#include <errno.h>
#include <poll.h>
#include <termios.h>

#include <algorithm>
#include <utility>

namespace bthal::sim {
namespace {

// A start bit, eight data bits, a stop bit.
constexpr uint64_t kBitsPerByte = 10;
// How much is read, and written, at once. A pseudo-terminal holds about 4 KiB.
constexpr size_t kReadAtOnce = 65536;
constexpr size_t kWriteAtOnce = 4096;
// With pacing a chunk is what the wire carries in this time.
constexpr auto kPacedChunk = std::chrono::milliseconds(2);
// With this much waiting for the host, nothing more is read from it, as a UART drops its RTS; but only for so long,
// because a host that writes before it reads on would otherwise wait for us as we wait for it.
constexpr size_t kThrottleAt = size_t{256} * 1024;
constexpr auto kThrottleFor = std::chrono::milliseconds(20);
// Beyond this the host has stopped reading for good.
constexpr size_t kDropAt = size_t{64} * 1024 * 1024;

uint32_t BitRate(speed_t speed) {
  switch (speed) {
    case B9600:
      return 9600;
    case B19200:
      return 19200;
    case B38400:
      return 38400;
    case B57600:
      return 57600;
    case B115200:
      return 115200;
    case B230400:
      return 230400;
    case B460800:
      return 460800;
    case B500000:
      return 500000;
    case B576000:
      return 576000;
    case B921600:
      return 921600;
    case B1000000:
      return 1000000;
    case B1152000:
      return 1152000;
    case B1500000:
      return 1500000;
    case B2000000:
      return 2000000;
    case B2500000:
      return 2500000;
    case B3000000:
      return 3000000;
    case B3500000:
      return 3500000;
    case B4000000:
      return 4000000;
    default:
      return 0;
  }
}

}  // namespace

bool Line::Open(const std::string& link, std::string* error) { return pty_.Open(link, error); }

void Line::HangUp() {
  Drop();
  arriving_ = {};
  arrival_.reset();
  std::string error;
  if (!pty_.HangUp(&error)) journal_->Record(WireEvent::kProtocolError, 0, "the UART does not come back: " + error);
}

uint32_t Line::ReadHostSpeed() const {
  termios attributes{};
  return tcgetattr(pty_.board_end(), &attributes) == 0 ? BitRate(cfgetospeed(&attributes)) : host_speed_;
}

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
    arriving_ = ReadPty(std::max<size_t>(1, static_cast<size_t>(kPacedChunk / WireTime(1))));
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

void Line::Send(Outgoing packet) {
  if (waiting_ > kDropAt) {
    journal_->Record(WireEvent::kLostBytes, packet.bytes.size(), "the host has stopped reading");
    return;
  }
  waiting_ += packet.bytes.size() + 1;
  queue_.push_back(std::move(packet));
}

void Line::Drop() {
  queue_.clear();
  waiting_ = 0;
  chunk_ = {};
  written_ = 0;
  blocked_ = held_ = false;
  chunk_due_.reset();
  split_packets_ = merge_packets_ = merging_ = 0;
  merge_until_.reset();
}

void Line::SplitNext(size_t packets, size_t size, Clock::duration gap) {
  split_packets_ = packets;
  split_size_ = std::max<size_t>(size, 1);
  split_gap_ = gap;
}

void Line::MergeNext(size_t packets, Clock::duration patience) {
  merge_packets_ = packets;
  merge_patience_ = patience;
}

bool Line::Merging(Clock::time_point now) {
  if (merge_packets_ == 0) return false;
  if (!merge_until_) merge_until_ = now + merge_patience_;
  if (queue_.size() < merge_packets_ && now < *merge_until_) return true;
  merging_ = std::min(queue_.size(), merge_packets_);
  merge_packets_ = 0;
  merge_until_.reset();
  return false;
}

// Takes packets from the queue's front into the chunk, up to the first whose leaving somebody waits for.
void Line::Assemble() {
  size_t limit = kWriteAtOnce;
  if (pace_) limit = std::max<size_t>(1, static_cast<size_t>(kPacedChunk / WireTime(1)));
  chunk_ = {};
  written_ = 0;
  for (const Outgoing& packet : queue_) {
    const size_t begin = chunk_.bytes.size();
    if (packet.type != 0) Put8(chunk_.bytes, packet.type);
    PutAll(chunk_.bytes, packet.bytes);
    if (packet.loses && *packet.loses < chunk_.bytes.size() - begin) {
      chunk_.bytes.erase(chunk_.bytes.begin() + static_cast<ptrdiff_t>(begin + *packet.loses));
    }
    ++chunk_.packets;
    if (chunk_.packets < merging_) continue;
    if (packet.sent || chunk_.bytes.size() >= limit || split_packets_ != 0) break;
  }
  merging_ = 0;
}

// What a receiver at another speed makes of the bytes: fewer or more of them, and none as it was.
void Line::Garble() {
  const uint32_t host = ReadHostSpeed();
  NoteHostSpeed(host);
  if (host == speed_) return;
  journal_->Record(
      WireEvent::kLostBytes, chunk_.bytes.size(),
      "the controller sends at " + std::to_string(speed_) + " bit/s, the host listens at " + std::to_string(host));
  const size_t count =
      host == 0 ? 0 : std::clamp<size_t>(chunk_.bytes.size() * host / speed_, 1, 2 * chunk_.bytes.size() + 1);
  Bytes garbled;
  for (size_t i = 0; i < count; ++i)
    Put8(garbled, 0x80u | static_cast<unsigned>(chunk_.bytes[i % chunk_.bytes.size()] * size_t{37} + i));
  chunk_.bytes = std::move(garbled);
}

std::optional<size_t> Line::PieceSize(Clock::time_point now) {
  const size_t rest = chunk_.bytes.size() - written_;
  if (split_packets_ == 0) return rest;
  if (now < next_piece_) return std::nullopt;
  next_piece_ = now + split_gap_;
  // Asked this way, the terminal first brings in what is still on its way to the reader's buffer.
  pollfd unread{pty_.host_end(), POLLIN, 0};
  if (poll(&unread, 1, 0) > 0) return std::nullopt;
  return std::min(rest, split_size_);
}

void Line::ChunkLeft() {
  const size_t packets = chunk_.packets;
  chunk_ = {};
  chunk_due_.reset();
  if (split_packets_ != 0) --split_packets_;
  for (size_t i = 0; i < packets && !queue_.empty(); ++i) {
    Outgoing packet = std::move(queue_.front());
    queue_.pop_front();
    waiting_ -= packet.bytes.size() + 1;
    JournalEntry entry;
    entry.event = WireEvent::kSent;
    entry.packet_type = packet.type;
    entry.value = packet.bytes.size();
    entry.bytes = std::move(packet.bytes);
    journal_->Record(std::move(entry));
    if (packet.sent) packet.sent();
  }
}

void Line::Flush(Clock::time_point now) {
  WriteQueued(now);
  answers_since_.reset();
}

void Line::WriteQueued(Clock::time_point now) {
  while (!held_ && (!queue_.empty() || chunk_.packets != 0)) {
    if (chunk_.packets == 0) {
      if (Merging(now)) return;
      Assemble();
      Garble();
      if (pace_) {
        // An answer starts when its question had arrived, however late this thread came to it.
        output_free_ = std::max(output_free_, answers_since_.value_or(now)) + WireTime(chunk_.bytes.size());
        chunk_due_ = output_free_;
      }
    }
    if (chunk_due_ && now < *chunk_due_) return;
    const std::optional<size_t> size = PieceSize(now);
    if (!size) return;
    const ssize_t count =
        *size == 0 ? 0 : TEMP_FAILURE_RETRY(write(pty_.board_end(), chunk_.bytes.data() + written_, *size));
    blocked_ = count < static_cast<ssize_t>(*size);
    if (count > 0) {
      written_ += static_cast<size_t>(count);
      progress_ = now;
    }
    if (written_ == chunk_.bytes.size()) ChunkLeft();
    if (blocked_) return;
  }
}

}  // namespace bthal::sim
