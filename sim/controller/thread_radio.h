// The Thread radio that shares the controller's UART.
#pragma once

#include "sim/controller/outlet.h"

namespace bthal::sim {

//   frame:  0 | 0 | payload length, 16 bits | payload
class ThreadRadio {
 public:
  explicit ThreadRadio(Outlet* outlet) : outlet_(outlet) {}

  // The payload of each frame comes back.
  void Receive(const Bytes& frame);
  // Ends a stream, as a loss of power does.
  void Forget() { number_ = count_ = 0; }
  // Sends `count` frames, as fast as the host takes them, with payloads of `min_size` to `max_size` bytes. A payload
  // begins with the frame's number, 32 bits, as far as it fits; byte k after it is the number plus k.
  void Stream(uint32_t count, uint16_t min_size, uint16_t max_size);
  static Bytes Payload(uint32_t number, uint16_t min_size, uint16_t max_size);

 private:
  void Send(const Bytes& payload);
  void Go();

  Outlet* const outlet_;
  uint32_t number_ = 0;
  uint32_t count_ = 0;
  uint16_t min_size_ = 0;
  uint16_t max_size_ = 0;
};

}  // namespace bthal::sim
