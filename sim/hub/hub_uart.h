// The hub's end of the UART to the controller: the board's own line, opened as a host opens it.
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "sim/base/bytes.h"
#include "sim/base/fd.h"
#include "sim/base/timers.h"

namespace bthal::sim {

// Belongs to the hub's thread, and never blocks it.
class HubUart {
 public:
  using OnPacket = std::function<void(uint8_t type, const Bytes& packet)>;

  explicit HubUart(std::string root) : root_(std::move(root)) {}

  bool Open();
  void Close();
  bool is_open() const { return tty_.ok(); }
  bool SetSpeed(uint32_t bits_per_second) const;
  // The controller's power pin.
  bool SetPower(bool on) const;

  // With low-power mode on, the wake line goes up before something is written, and down when nothing has been for a
  // while.
  void SetLowPower(bool on, Clock::time_point now);

  // Puts bytes behind what waits; `sent` is called when the last of them has been written.
  void Write(Bytes bytes, std::function<void()> sent, Clock::time_point now);
  size_t Waiting() const { return waiting_.size(); }

  int fd() const { return tty_.get(); }
  bool WantsToWrite() const { return !waiting_.empty(); }
  // When to look again though nothing is ready.
  std::optional<Clock::time_point> NextLook() const;
  void Flush(Clock::time_point now);
  // Reads what is there, and cuts it into packets.
  void Read(const OnPacket& on_packet);

 private:
  struct Outgoing {
    Bytes bytes;
    size_t written = 0;
    std::function<void()> sent;
  };

  bool WriteNode(const char* node, bool on) const;
  void SetWakeLine(bool high);

  const std::string root_;
  Fd tty_;
  std::deque<Outgoing> waiting_;
  Bytes received_;  // a packet begun
  bool low_power_ = false;
  bool wake_line_ = false;
  Clock::time_point idle_since_{};
};

}  // namespace bthal::sim
