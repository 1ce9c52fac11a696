// What leaves for the host: packets wait in a queue, and chunks of them are written.
#include <errno.h>
#include <poll.h>

#include <algorithm>

#include "sim/wire/line.h"

namespace bthal::sim {
namespace {

// A pseudo-terminal holds about 4 KiB.
constexpr size_t kWriteAtOnce = 4096;
// Beyond this the host has stopped reading for good.
constexpr size_t kDropAt = size_t{64} * 1024 * 1024;

}  // namespace

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
  if (pace_) limit = PacedChunk();
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
  for (size_t i = 0; i < count; ++i) {
    Put8(garbled, 0x80u | static_cast<unsigned>(chunk_.bytes[i % chunk_.bytes.size()] * size_t{37} + i));
  }
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
    journal_->RecordPacket(WireEvent::kSent, packet.type, std::move(packet.bytes));
    if (packet.sent) packet.sent();
  }
}

void Line::Flush(Clock::time_point now) {
  WriteQueued(now);
  answers_since_.reset();
}

bool Line::BeginChunk(Clock::time_point now) {
  if (Merging(now)) return false;
  Assemble();
  Garble();
  if (pace_) {
    // An answer starts when its question had arrived, however late this thread came to it.
    output_free_ = std::max(output_free_, answers_since_.value_or(now)) + WireTime(chunk_.bytes.size());
    chunk_due_ = output_free_;
  }
  return true;
}

void Line::WriteQueued(Clock::time_point now) {
  while (!held_ && (!queue_.empty() || chunk_.packets != 0)) {
    if (chunk_.packets == 0 && !BeginChunk(now)) return;
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
