// An H4 controller emulator on a Unix socket that obeys the standard commands in our place.
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "sim/base/bytes.h"
#include "sim/base/fd.h"
#include "sim/base/journal.h"

namespace bthal::sim {

class Backend {
 public:
  using OnPacket = std::function<void(uint8_t type, Bytes packet)>;

  explicit Backend(EventJournal* journal) : journal_(journal) {}

  // Connects to "unix:PATH". False with the reason in `error`.
  bool Connect(const std::string& where, std::string* error);
  // One packet is one write: emulators take what one read gives for one packet. False when nobody will answer.
  bool Forward(uint8_t type, const Bytes& packet);

  int fd() const { return socket_.get(); }  // -1 when the emulator has gone
  short PollEvents() const;
  // Takes what has come and sends what waits.
  void Serve(const OnPacket& on_packet);

 private:
  void Flush();
  void Cut(const OnPacket& on_packet);
  void Gone(const std::string& why);

  EventJournal* const journal_;
  Fd socket_;
  std::deque<Bytes> waiting_;
  size_t sent_ = 0;  // bytes of the first waiting packet
  Bytes received_;
};

}  // namespace bthal::sim
