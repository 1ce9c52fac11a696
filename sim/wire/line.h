// The UART between host and controller, seen from the controller.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "sim/base/bytes.h"
#include "sim/base/journal.h"
#include "sim/base/timers.h"
#include "sim/nodes/pty_pair.h"

namespace bthal::sim {

// One packet, or raw bytes, on its way to the host.
struct Outgoing {
  uint8_t type = 0;             // 0: `bytes` are raw
  Bytes bytes;                  // without the type byte
  std::function<void()> sent;   // called when the last byte has left; may be empty
  std::optional<size_t> loses;  // the number of a byte that gets lost on the way, the type byte being number 0
};

// Bytes from the host, and how fast it sent them.
struct Arrived {
  Bytes bytes;
  uint32_t host_speed = 0;
};

// Never blocks: what the host does not take yet waits here.
class Line {
 public:
  Line(EventJournal* journal, const Guardian* guardian, bool pace) : journal_(journal), pace_(pace), pty_(guardian) {}

  bool Open(const std::string& link, std::string* error);
  void HangUp();
  void Close() { pty_.Close(); }

  int fd() const { return pty_.board_end(); }
  // What to poll for now, and when to look again though nothing is ready.
  short PollEvents(Clock::time_point now) const;
  std::optional<Clock::time_point> NextLook(Clock::time_point now) const;

  // What has arrived by now.
  Arrived Receive(Clock::time_point now);
  // What the controller makes of it: nothing, if the host does not send at its speed.
  Bytes Hear(Arrived arrived);
  void Send(Outgoing packet);
  // Writes what may be written by now.
  void Flush(Clock::time_point now);
  // Forgets what has not left yet. What is on its way from the host still arrives.
  void Drop();

  // The bit rate of the controller's end.
  void SetSpeed(uint32_t speed);
  uint32_t speed() const { return speed_; }
  // From Hold to Release packets wait.
  void Hold() { held_ = true; }
  void Release() { held_ = false; }
  // When the host last took something.
  Clock::time_point spoke() const { return progress_; }
  // Bytes waiting to leave.
  size_t Waiting() const { return waiting_; }

  // The next `packets` packets reach the host in pieces of `size` bytes, each when the one before has been read and
  // `gap` has passed.
  void SplitNext(size_t packets, size_t size, Clock::duration gap);
  // The next `packets` packets reach the host in one piece, or what there is of them when `patience` has passed.
  void MergeNext(size_t packets, Clock::duration patience);

 private:
  struct Chunk {
    Bytes bytes;
    size_t packets = 0;  // how many it holds; 0: there is no chunk
  };

  // line.cc
  uint32_t ReadHostSpeed() const;
  void NoteHostSpeed(uint32_t speed);
  Clock::duration WireTime(size_t bytes) const;
  // With pacing: how many bytes cross the wire at once.
  size_t PacedChunk() const;
  Arrived ReadPty(size_t limit) const;
  bool Throttled(Clock::time_point now) const;

  // line_output.cc
  bool Merging(Clock::time_point now);
  void WriteQueued(Clock::time_point now);
  // Makes the next chunk; false while it has to wait for more.
  bool BeginChunk(Clock::time_point now);
  void Assemble();
  void Garble();
  // How much of the chunk may be written now; nothing while the host has yet to read an earlier piece.
  std::optional<size_t> PieceSize(Clock::time_point now);
  void ChunkLeft();

  EventJournal* const journal_;
  const bool pace_;
  PtyPair pty_;
  uint32_t speed_ = 115200;
  uint32_t host_speed_ = 0;
  bool held_ = false;

  std::deque<Outgoing> queue_;
  size_t waiting_ = 0;
  Chunk chunk_;                                 // being written
  size_t written_ = 0;                          // bytes of it
  bool blocked_ = false;                        // the host's end is full
  Clock::time_point progress_{};                // when the host last took something
  std::optional<Clock::time_point> chunk_due_;  // with pacing: when the chunk will have crossed the wire
  Clock::time_point output_free_{};             // with pacing: when the wire to the host falls idle

  Arrived arriving_;  // with pacing: read from the host, still on the wire
  std::optional<Clock::time_point> arrival_;
  std::optional<Clock::time_point> answers_since_;  // when what is answered now had arrived

  size_t split_packets_ = 0;
  size_t split_size_ = 0;
  Clock::duration split_gap_{};
  Clock::time_point next_piece_{};
  size_t merge_packets_ = 0;
  size_t merging_ = 0;  // packets that the next chunk holds at least
  Clock::duration merge_patience_{};
  std::optional<Clock::time_point> merge_until_;
};

}  // namespace bthal::sim
