// An H4 controller emulator on a Unix socket that obeys the standard commands in our place.
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "sim/controller.h"
#include "sim/fd.h"

namespace bthal::sim {

class Backend final : public CommandSink {
 public:
  using OnPacket = std::function<void(uint8_t type, Bytes packet)>;

  explicit Backend(EventJournal* journal) : journal_(journal) {}

  // Connects to "unix:PATH". False with the reason in `error`.
  bool Connect(const std::string& where, std::string* error);
  // One packet is one write: emulators take what one read gives for one packet.
  bool Forward(uint8_t type, const Bytes& packet) override;

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
