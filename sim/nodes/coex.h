// The coexistence driver of the combined wireless chip.
#pragma once

#include <string>

#include "sim/base/journal.h"
#include "sim/nodes/guardian.h"
#include "sim/nodes/ordered_inputs.h"
#include "sim/nodes/pty_pair.h"

namespace bthal::sim {

// Messages both ways are four bytes.
//   from Bluetooth:  02 02 03 4x   power changes;   02 02 04 81   a big hammer is acknowledged
//   to Bluetooth:    01 xx 01 value                 value 42 or 43: the chip is about to be reset as a whole
class Coex {
 public:
  Coex(EventJournal* journal, OrderedInputs* inputs, const Guardian* guardian)
      : journal_(journal), inputs_(inputs), pty_(guardian) {}
  ~Coex() { Close(); }

  bool Open(const std::string& root, std::string* error);
  void SendEvent(const Bytes& bytes);
  void BigHammer(uint8_t value);
  // Whoever has the device open reads end of file; who opens it again finds a fresh one.
  void HangUp();
  void Close();

 private:
  bool Listen(std::string* error);

  EventJournal* const journal_;
  OrderedInputs* const inputs_;
  PtyPair pty_;
};

}  // namespace bthal::sim
